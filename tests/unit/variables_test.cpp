// Unit tests of the variable store: put/add/get, the write-protection and
// foreign-buffer rules, flags, clearing by pattern and the tree walks.
#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <set>
#include <string>

#include "driver/diagnostics.h"
#include "driver/request.h"
#include "interp/conditions.h"
#include "values/variables.h"

namespace {

int chain_length(V_USER *u) {
    int n = 0;
    for (V_var *v = &u->var; v; v = v->next) n++;
    return n;
}

void require_patterns() {
    if (V_CMPpatt("vt_x", "vt_x") == -1) GTEST_SKIP() << "pattern matching not built yet";
}

TEST(Variables, PutGetAndReplace) {
    EXPECT_EQ(V_get_value("vt_missing"), nullptr);
    EXPECT_EQ(V_get_user("vt_missing"), nullptr);
    EXPECT_EQ(V_put_value("vt_a", "first", 0, 0), 0);
    EXPECT_STREQ(V_get_value("vt_a"), "first");
    std::string big(5000, 'q');
    EXPECT_EQ(V_put_value("vt_a", big.c_str(), 0, 0), 0);
    EXPECT_EQ(V_get_value("vt_a"), big);
    EXPECT_EQ(V_put_value("vt_a", "", 0, 0), 0);
    EXPECT_STREQ(V_get_value("vt_a"), "");
    EXPECT_EQ(V_get_value("VT_A"), nullptr);   // names are case-sensitive
    V_USER *u = V_get_user("vt_a");
    ASSERT_NE(u, nullptr);
    EXPECT_STREQ(u->name, "vt_a");
    EXPECT_EQ(u->avl.key, u->name);
}

TEST(Variables, ReplacingInALoopDoesNotGrowTheHeap) {
    V_put_value("vt_loop", "x", 0, 0);
    V_USER *u = V_get_user("vt_loop");
    char value[64];
    for (int i = 0; i < 2000; i++) {
        snprintf(value, sizeof value, "value %d", i);
        V_put_value("vt_loop", value, 0, 0);
    }
    EXPECT_STREQ(V_get_value("vt_loop"), "value 1999");
    int blocks = 0;
    for (heapblock_t *mb = u->hp->smallreq; mb; mb = mb->m_next) blocks++;
    EXPECT_EQ(blocks, 1);
}

TEST(Variables, AddBuildsAChainAndPutCollapsesIt) {
    EXPECT_EQ(V_add_value("vt_list", "one"), 0);   // creates
    V_USER *u = V_get_user("vt_list");
    ASSERT_NE(u, nullptr);
    EXPECT_EQ(chain_length(u), 1);
    V_add_value("vt_list", "two");
    V_add_value("vt_list", "three");
    ASSERT_EQ(chain_length(u), 3);
    EXPECT_STREQ(u->var.next->next->value, "three");
    EXPECT_STREQ(V_get_value("vt_list"), "one");

    V_put_value("vt_list", "only", 0, 0);
    EXPECT_EQ(chain_length(u), 1);
    EXPECT_STREQ(V_get_value("vt_list"), "only");
}

TEST(Variables, AddFillsAnEmptyLastElementAndHonoursClean) {
    V_put_value("vt_fill", "a", 0, 0);
    V_add_value("vt_fill", "b");
    V_USER *u = V_get_user("vt_fill");
    u->var.next->value = nullptr;
    V_add_value("vt_fill", "c");
    ASSERT_EQ(chain_length(u), 2);
    EXPECT_STREQ(u->var.next->value, "c");

    u->clean = 1;
    V_add_value("vt_fill", "fresh");
    EXPECT_EQ(chain_length(u), 1);
    EXPECT_STREQ(V_get_value("vt_fill"), "fresh");
    EXPECT_EQ(u->clean, 0);
}

TEST(Variables, WriteProtectedVariables) {
    V_ERRMSG[0] = '\0';
    EXPECT_EQ(V_put_value("vt_fixed", "kept", 1, 0), 0);
    EXPECT_EQ(V_put_value("vt_fixed", "other", 0, 0), -1);
    EXPECT_STREQ(V_ERRMSG, "## Fixed Value: vt_fixed");
    EXPECT_STREQ(V_get_value("vt_fixed"), "kept");

    V_ERRMSG[0] = '\0';
    EXPECT_EQ(V_add_value("vt_fixed", "more"), -1);
    EXPECT_STREQ(V_ERRMSG, "");
    EXPECT_EQ(chain_length(V_get_user("vt_fixed")), 1);
}

TEST(Variables, ZeroFlagsNeverClearFlags) {
    V_put_value("vt_cookie", "c", 0, 1);
    V_put_value("vt_cookie", "d", 0, 0);
    V_USER *u = V_get_user("vt_cookie");
    EXPECT_EQ(u->cookie, 1);
    EXPECT_EQ(u->fixed, 0);
    V_put_value("vt_cookie", "e", 1, 0);   // an ordinary variable may be protected later
    EXPECT_EQ(u->fixed, 1);
    EXPECT_EQ(u->cookie, 1);
}

TEST(Variables, ForeignBufferIsFilledWithABound) {
    char shm[8];
    memset(shm, '#', sizeof shm);
    V_put_value("vt_shm", "", 0, 0);
    V_USER *u = V_get_user("vt_shm");
    u->fixed = 2;
    u->cookie = 6;
    u->var.value = shm;
    EXPECT_EQ(V_put_value("vt_shm", "abcdefghij", 0, 0), 0);
    EXPECT_EQ(memcmp(shm, "abcdef##", 8), 0);   // no terminator, nothing past 6
    EXPECT_EQ(V_put_value("vt_shm", "xy", 0, 0), 0);
    EXPECT_STREQ(shm, "xy");
    u->var.value = nullptr;   // the buffer is ours, not the variable's
}

TEST(Variables, ForeignBufferWithATerminatedMirror) {
    char seg[6];
    memset(seg, '#', sizeof seg);
    V_put_value("vt_mirror", "", 0, 0);
    V_USER *u = V_get_user("vt_mirror");
    u->fixed = 2;
    u->cookie = 4;
    u->avl.data = seg;
    u->var.value = static_cast<char *>(V_heap_alloc(u->hp, 5));
    V_put_value("vt_mirror", "abcdefg", 0, 0);
    EXPECT_EQ(memcmp(seg, "abcd##", 6), 0);
    EXPECT_STREQ(V_get_value("vt_mirror"), "abcd");   // read back terminated
    memcpy(seg, "wxyz", 4);                         // written by another process
    EXPECT_STREQ(V_get_value("vt_mirror"), "wxyz");
    V_put_value("vt_mirror", "q", 0, 0);
    EXPECT_EQ(memcmp(seg, "q\0\0\0##", 6), 0);
    EXPECT_STREQ(V_get_user("vt_mirror")->var.value, "q");
    u->avl.data = u;   // the segment is ours, not the variable's
}

TEST(Variables, CountTreeReportsCountAndLongestName) {
    V_put_value("vt_a_rather_long_variable_name_for_counting", "1", 0, 0);
    V_put_value("vt_short", "1", 0, 0);
    int maxlen = 0;
    int n = count_tree(v_BUFFERS.vtree.root, &maxlen);
    EXPECT_GE(n, 2);
    EXPECT_GE(maxlen, static_cast<int>(strlen("vt_a_rather_long_variable_name_for_counting")));
    EXPECT_EQ(count_tree(nullptr, &maxlen), 0);
}

TEST(Variables, ClearExactNameAndMissingName) {
    require_patterns();
    V_put_value("vt_gone", "1", 0, 0);
    EXPECT_EQ(V_clear_value("vt_gone"), 0);
    EXPECT_EQ(V_get_value("vt_gone"), nullptr);
    EXPECT_EQ(V_clear_value("vt_gone"), -1);
    EXPECT_EQ(V_put_value("vt_gone", "back", 0, 0), 0);   // a new record
    EXPECT_STREQ(V_get_value("vt_gone"), "back");
}

TEST(Variables, ClearByPatternSparesFixedOnes) {
    require_patterns();
    V_put_value("vt_cl_1", "1", 0, 0);
    V_put_value("vt_cl_2", "2", 0, 0);
    V_put_value("vt_cl_keep", "k", 1, 0);
    V_put_value("vt_other", "o", 0, 0);
    EXPECT_EQ(V_clear_value("vt_cl_*"), 0);
    EXPECT_EQ(V_get_value("vt_cl_1"), nullptr);
    EXPECT_EQ(V_get_value("vt_cl_2"), nullptr);
    EXPECT_STREQ(V_get_value("vt_cl_keep"), "k");
    EXPECT_STREQ(V_get_value("vt_other"), "o");
}

TEST(Variables, ScanListsLeftThenRightThenNode) {
    require_patterns();
    for (const char *n : {"vt_s_b", "vt_s_a", "vt_s_c"}) V_put_value(n, "x", 0, 0);
    std::set<std::string> seen;
    for (V_USER *u = scan_tree(v_BUFFERS.vtree.root, "vt_s_*"); u; u = u->next)
        seen.insert(u->name);
    EXPECT_EQ(seen, (std::set<std::string>{"vt_s_a", "vt_s_b", "vt_s_c"}));

    // on a private three-node subtree the order is left, right, root
    V_heap *hp = V_heap_new();
    V_USER *b = V_USER_new(hp, "vt_p_b", "x");
    V_USER *a = V_USER_new(hp, "vt_p_a", "x");
    V_USER *c = V_USER_new(hp, "vt_p_c", "x");
    V_USER *fixed = V_USER_new(hp, "vt_p_d", "x");
    fixed->fixed = 1;
    b->avl.left = &a->avl;
    b->avl.right = &c->avl;
    c->avl.right = &fixed->avl;
    V_USER *chain = scan_tree(&b->avl, "vt_p_*");
    ASSERT_EQ(chain, a);
    ASSERT_EQ(a->next, c);
    ASSERT_EQ(c->next, b);
    EXPECT_EQ(b->next, nullptr);
    for (V_USER *u : {a, b, c, fixed}) V_heap_free(u->hp);
    V_heap_free(hp);
}

}  // namespace
