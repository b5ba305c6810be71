// Unit tests of the keyword table and its tree, the dispatcher's decision
// between command, block end and text, and the mode commands.
#include <gtest/gtest.h>

#include <cstring>
#include <set>
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
int dispatch(const char *line, int *compile, std::string *after = nullptr)
{
    static char buff[V_LINE_MAX];
    V_FILE none{};
    snprintf(buff, sizeof buff, "%s", line);
    int rc = V_command(&none, buff, compile, 0);
    if (after)
        *after = buff;
    return rc;
}

} // namespace

TEST(Dispatcher, TableHasEveryKeywordOnceAndEndsWithNull)
{
    std::set<std::string> seen;
    for (int i = 0; i < V_CMD_COUNT - 1; i++) {
        ASSERT_NE(v_CMD[i].cmd, nullptr) << i;
        EXPECT_TRUE(seen.insert(v_CMD[i].cmd).second) << v_CMD[i].cmd;
        EXPECT_EQ(V_search_command(v_CMD[i].cmd), v_CMD[i].code) << v_CMD[i].cmd;
    }
    EXPECT_EQ(v_CMD[V_CMD_COUNT - 1].cmd, nullptr);
    EXPECT_EQ(v_CMD[V_CMD_COUNT - 1].code, 0);
}

TEST(Dispatcher, KnownCodes)
{
    EXPECT_EQ(V_search_command("option"), 1);
    EXPECT_EQ(V_search_command("include"), 13);
    EXPECT_EQ(V_search_command("if"), 23);
    EXPECT_EQ(V_search_command("elif"), 24);
    EXPECT_EQ(V_search_command("sql"), 29);
    EXPECT_EQ(V_search_command("shmdt"), 39);
    EXPECT_EQ(V_search_command("end"), V_CMD_BLOCK_END);
    EXPECT_EQ(V_search_command("continue"), V_CMD_BLOCK_END);
    EXPECT_EQ(V_search_command("break"), V_CMD_BLOCK_END);
}

TEST(Dispatcher, UnknownWordsAndCase)
{
    EXPECT_EQ(V_search_command("IF"), -1);
    EXPECT_EQ(V_search_command("If"), -1);
    EXPECT_EQ(V_search_command("iff"), -1);
    EXPECT_EQ(V_search_command("i"), -1);
    EXPECT_EQ(V_search_command(""), -1);
    EXPECT_EQ(V_search_command("else"), -1);
    EXPECT_EQ(V_search_command(nullptr), -1);
}


TEST(Dispatcher, BlockEndsAreLeftToTheCaller)
{
    int compile = 1;
    std::string after;
    EXPECT_EQ(dispatch("   <@end>\n", &compile, &after), -1);
    EXPECT_EQ(after, "<@end>");
    EXPECT_EQ(dispatch("<@continue>\n", &compile), -1);
    EXPECT_EQ(dispatch("<@break>\n", &compile), -1);
}


TEST(Dispatcher, TagNeedsItsExactSpelling)
{
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

TEST(Dispatcher, LongNamesNeverReachAHandler)
{
    int compile = 1;
    std::string name30(30, 'a');
    std::string line = "<@" + name30 + ">\n";
    EXPECT_EQ(dispatch(line.c_str(), &compile), -1);
    std::string huge = "<@" + std::string(5000, 'c') + "> x\n";
    EXPECT_EQ(dispatch(huge.c_str(), &compile), -1);
}


TEST(Options, NamesAndValuesAreCaseBlind)
{
    int compile = 1;
    V_sqlTRAP = 1;
    EXPECT_EQ(dispatch("<@option> SQL_TRAP OFF\n", &compile), 0);
    EXPECT_EQ(V_sqlTRAP, 0);
    EXPECT_EQ(dispatch("<@option> sql_trap On\n", &compile), 0);
    EXPECT_EQ(V_sqlTRAP, 1);
}

TEST(Options, EveryOptionSetsItsFlag)
{
    int compile = 1;
    struct { const char *line; int *flag; int want; } cases[] = {
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

TEST(Options, TrapFunctionKeepsCaseAndIsBounded)
{
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

TEST(OptionsDeathTest, UnknownOptionOrValueIsFatal)
{
    int compile = 1;
    EXPECT_EXIT(dispatch("<@option> sql_trap maybe\n", &compile),
                testing::ExitedWithCode(255), "");
    EXPECT_EXIT(dispatch("<@option> sql_transactions on_transactions\n", &compile),
                testing::ExitedWithCode(255), "");
    EXPECT_EXIT(dispatch("<@option> colour red\n", &compile),
                testing::ExitedWithCode(255), "");
}
