// Unit tests of the shared handler entry: what it refuses, what ignore mode
// leaves alone, and the bound of a caller's short buffer.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "values/command_entry.h"
#include "values/variables.h"

TEST(CommandEntry, OnlyTheWholeTagIsOurs) {
    char out[V_LINE_MAX];
    EXPECT_EQ(command_entry("<@settle> a b", "<@set>", 1, 0, out), -1);
    EXPECT_EQ(command_entry("<@set a b", "<@set>", 1, 0, out), -1);
    EXPECT_EQ(command_entry(" <@set> a b", "<@set>", 1, 0, out), -1);
    EXPECT_EQ(command_entry("<@set> a b", "<@set>", 1, 0, out), 1);
    EXPECT_STREQ(out, " a b");
}

TEST(CommandEntry, IgnoreModeSubstitutesNothing) {
    V_put_value("ce_seen", "old", 0, 0);
    char out[V_LINE_MAX];
    strcpy(out, "untouched");
    EXPECT_EQ(command_entry("<@set> $(ce_seen)", "<@set>", 1, 1, out), 0);
    EXPECT_STREQ(out, "untouched");
    EXPECT_EQ(command_entry("<@set> $(ce_seen)", "<@set>", 1, 0, out), 1);
    EXPECT_STREQ(out, " old");
    EXPECT_EQ(command_entry("<@set> $(ce_seen)", "<@set>", 0, 0, out), 1);
    EXPECT_STREQ(out, " $(ce_seen)");
}

TEST(CommandEntry, ShortBufferIsCutNotOverrun) {
    std::string line = "<@fork> " + std::string(500, 'n');
    char out[16];
    EXPECT_EQ(command_entry(line.c_str(), "<@fork>", 1, 0, out, {.size = sizeof out}), 1);
    EXPECT_EQ(strlen(out), sizeof out - 1);
    // a null buffer leaves the substitution to the handler
    EXPECT_EQ(command_entry(line.c_str(), "<@fork>", 1, 0, nullptr), 1);
}
