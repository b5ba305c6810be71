// Unit tests of the keyword lookup, the dispatcher's decision between
// command, block end and text, and the mode commands.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "db/sql_commands.h"
#include "driver/diagnostics.h"
#include "interp/dispatcher.h"
#include "interp/options.h"
#include "interp/page_reader.h"
#include "values/output.h"
#include "values/substitution.h"

namespace {

// Dispatches one line with an empty file behind it.
int dispatch(const char *line, int *compile, std::string *after = nullptr) {
    static char buff[V_LINE_MAX];
    V_FILE none{};
    snprintf(buff, sizeof buff, "%s", line);
    int rc = V_command(&none, buff, compile, 0);
    if (after) *after = buff;
    return rc;
}

}   // namespace

TEST(Dispatcher, KeywordsMatchExactlyAndByCase) {
    // a word is a keyword only as written in the table
    EXPECT_EQ(V_line_role("<@IF> 1 = 1"), ROLE_UNKNOWN);
    EXPECT_EQ(V_line_role("<@If> 1 = 1"), ROLE_UNKNOWN);
    EXPECT_EQ(V_line_role("<@iff> x"), ROLE_UNKNOWN);
    EXPECT_EQ(V_line_role("<@i> x"), ROLE_UNKNOWN);
    EXPECT_EQ(V_line_role("<@> x"), ROLE_UNKNOWN);
    EXPECT_EQ(V_line_role("<@if> x"), ROLE_IF);
    // <@else> is no keyword: the runners take it by its prefix
    EXPECT_EQ(V_line_role("<@else>"), ROLE_ELSE);
}

TEST(Dispatcher, BlockEndsAreLeftToTheCaller) {
    int compile = 1;
    std::string after;
    EXPECT_EQ(dispatch("   <@end>\n", &compile, &after), -1);
    EXPECT_EQ(after, "<@end>");
    EXPECT_EQ(dispatch("<@continue>\n", &compile), -1);
    EXPECT_EQ(dispatch("<@break>\n", &compile), -1);
}

TEST(Dispatcher, TagNeedsItsExactSpelling) {
    int compile = 1;
    // a blank inside the tag names nothing: no handler runs
    EXPECT_EQ(dispatch("<@compile x> OFF\n", &compile), -1);
    EXPECT_EQ(compile, 1);
    EXPECT_EQ(dispatch("<@COMPILE> OFF\n", &compile), -1);
    EXPECT_EQ(compile, 1);
    EXPECT_EQ(dispatch("<@compile OFF\n", &compile), -1);
    EXPECT_EQ(compile, 1);
    // the exact tag does switch
    EXPECT_EQ(dispatch("  <@compile> OFF\n", &compile), 0);
    EXPECT_EQ(compile, 0);
}

TEST(Dispatcher, LongNamesNeverReachAHandler) {
    int compile = 1;
    std::string name30(30, 'a');
    std::string line = "<@" + name30 + ">\n";
    EXPECT_EQ(dispatch(line.c_str(), &compile), -1);
    std::string huge = "<@" + std::string(5000, 'c') + "> x\n";
    EXPECT_EQ(dispatch(huge.c_str(), &compile), -1);
}

TEST(Options, NamesAndValuesAreCaseBlind) {
    int compile = 1;
    V_sqlTRAP = 1;
    EXPECT_EQ(dispatch("<@option> SQL_TRAP OFF\n", &compile), 0);
    EXPECT_EQ(V_sqlTRAP, 0);
    EXPECT_EQ(dispatch("<@option> sql_trap On\n", &compile), 0);
    EXPECT_EQ(V_sqlTRAP, 1);
}

TEST(Options, EveryOptionSetsItsFlag) {
    int compile = 1;
    struct {
        const char *line;
        int *flag;
        int want;
    } cases[] = {
        {"<@option> sql_names uppercase", &V_sqlcase, 1},
        {"<@option> sql_names lowercase", &V_sqlcase, 0},
        {"<@option> sql_transactions off", &V_sqlTRANS, 0},
        {"<@option> sql_transactions on", &V_sqlTRANS, 1},
        {"<@option> sql_trap off_transactions", &V_sqlTRANS, 0},
        {"<@option> sql_trap on_transactions", &V_sqlTRANS, 1},
        {"<@option> latin_html off", &HTML, 0},
        {"<@option> latin_html on", &HTML, 1},
        {"<@option> ignore_empty_lines off", &IgnoreEmpty, 0},
        {"<@option> ignore_empty_lines on", &IgnoreEmpty, 1},
        {"<@option> debug on", &Debug, 1},
        {"<@option> debug off", &Debug, 0},
        {"<@option> translate off", &compile, 0},
        {"<@option> translate on", &compile, 1},
    };
    for (auto &c : cases) {
        *c.flag = !c.want;
        EXPECT_EQ(dispatch(c.line, &compile), 0) << c.line;
        EXPECT_EQ(*c.flag, c.want) << c.line;
    }
}

TEST(Options, TrapFunctionKeepsCaseAndIsBounded) {
    int compile = 1;
    V_sqlFUNC = 0;
    EXPECT_EQ(dispatch("<@option> sql_trap function MyTrap\n", &compile), 0);
    EXPECT_STREQ(TRAPfunc, "MyTrap");
    EXPECT_EQ(V_sqlFUNC, 1);
    std::string longname(100, 'F');
    std::string line = "<@option> sql_trap function " + longname;
    EXPECT_EQ(dispatch(line.c_str(), &compile), 0);
    EXPECT_EQ(std::string(TRAPfunc), std::string(62, 'F'));
    // no name switches the trap function off
    EXPECT_EQ(dispatch("<@option> sql_trap function\n", &compile), 0);
    EXPECT_EQ(V_sqlFUNC, 0);
}

TEST(OptionsDeathTest, UnknownOptionOrValueIsFatal) {
    int compile = 1;
    EXPECT_EXIT(dispatch("<@option> sql_trap maybe\n", &compile), testing::ExitedWithCode(255), "");
    EXPECT_EXIT(dispatch("<@option> sql_transactions on_transactions\n", &compile),
                testing::ExitedWithCode(255), "");
    EXPECT_EXIT(dispatch("<@option> colour red\n", &compile), testing::ExitedWithCode(255), "");
}
