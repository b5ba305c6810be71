// Unit tests of the variable store: put/add/get, write protection, the
// foreign buffers of shared-memory variables, clearing by pattern.
#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <string>

#include "driver/diagnostics.h"
#include "patt/like.h"
#include "values/variables.h"

namespace {

int chain_length(V_USER *u) {
    int n = 0;
    for (V_var *v = &u->var; v; v = v->next) n++;
    return n;
}

TEST(Variables, PutGetAndReplace) {
    EXPECT_EQ(V_get_value("vt_missing"), nullptr);
    EXPECT_EQ(V_put_value("vt_a", "first", 0, 0), 0);
    std::string big(5000, 'q');
    EXPECT_EQ(V_put_value("vt_a", big.c_str(), 0, 0), 0);
    EXPECT_EQ(V_get_value("vt_a"), big);
    EXPECT_EQ(V_get_value("VT_A"), nullptr);   // names are case-sensitive
    V_USER *u = V_get_user("vt_a");
    char value[64];
    for (int i = 0; i < 2000; i++) {   // replacing recycles the heap
        snprintf(value, sizeof value, "value %d", i);
        V_put_value("vt_a", value, 0, 0);
    }
    EXPECT_STREQ(V_get_value("vt_a"), "value 1999");
    EXPECT_EQ(u->hp->smallreq->m_next, nullptr);
}

TEST(Variables, AddBuildsAChain) {
    EXPECT_EQ(V_add_value("vt_list", "one"), 0);   // creates
    V_add_value("vt_list", "two");
    V_USER *u = V_get_user("vt_list");
    ASSERT_EQ(chain_length(u), 2);
    u->var.next->value = nullptr;   // an empty last element is filled in place
    V_add_value("vt_list", "three");
    ASSERT_EQ(chain_length(u), 2);
    EXPECT_STREQ(u->var.next->value, "three");
    EXPECT_STREQ(V_get_value("vt_list"), "one");
    V_put_value("vt_list", "only", 0, 0);
    EXPECT_EQ(chain_length(u), 1);
    u->clean = 1;   // the next append replaces
    V_add_value("vt_list", "fresh");
    EXPECT_EQ(chain_length(u), 1);
    EXPECT_STREQ(V_get_value("vt_list"), "fresh");
}

TEST(Variables, WriteProtectionAndFlags) {
    V_ERRMSG[0] = '\0';
    V_put_value("vt_fixed", "kept", 1, 0);
    EXPECT_EQ(V_put_value("vt_fixed", "other", 0, 0), -1);
    EXPECT_STREQ(V_ERRMSG, "## Fixed Value: vt_fixed");
    V_ERRMSG[0] = '\0';
    EXPECT_EQ(V_add_value("vt_fixed", "more"), -1);
    EXPECT_STREQ(V_ERRMSG, "");   // append refuses silently
    EXPECT_STREQ(V_get_value("vt_fixed"), "kept");

    V_put_value("vt_cookie", "c", 0, 1);
    V_put_value("vt_cookie", "d", 0, 0);   // zero arguments keep the flags
    EXPECT_EQ(V_get_user("vt_cookie")->cookie, 1);
}

TEST(Variables, ForeignBuffers) {
    // value pointer straight at the buffer
    char shm[8];
    memset(shm, '#', sizeof shm);
    V_put_value("vt_shm", "", 0, 0);
    V_USER *u = V_get_user("vt_shm");
    u->fixed = 2;
    u->cookie = 6;
    u->var.value = shm;
    EXPECT_EQ(V_put_value("vt_shm", "abcdefghij", 0, 0), 0);
    EXPECT_EQ(memcmp(shm, "abcdef##", 8), 0);   // cut, no terminator
    u->var.value = nullptr;

    // buffer behind avl.data, read back through a terminated mirror
    char seg[6];
    memset(seg, '#', sizeof seg);
    V_put_value("vt_mirror", "", 0, 0);
    u = V_get_user("vt_mirror");
    u->fixed = 2;
    u->cookie = 4;
    u->avl.data = seg;
    u->var.value = static_cast<char *>(V_heap_alloc(u->hp, 5));
    V_put_value("vt_mirror", "abcdefg", 0, 0);
    EXPECT_EQ(memcmp(seg, "abcd##", 6), 0);
    EXPECT_STREQ(V_get_value("vt_mirror"), "abcd");
    memcpy(seg, "wxyz", 4);   // written by another process
    EXPECT_STREQ(V_get_value("vt_mirror"), "wxyz");
    V_put_value("vt_mirror", "q", 0, 0);
    EXPECT_EQ(memcmp(seg, "q\0\0\0##", 6), 0);   // padded with NULs
    EXPECT_STREQ(V_get_user("vt_mirror")->var.value, "q");
    u->avl.data = u;
}

TEST(Variables, ClearByPatternSparesFixedOnes) {
    if (V_CMPpatt("vt_x", "vt_x") == -1) GTEST_SKIP() << "pattern matching not built yet";
    for (const char *n : {"vt_cl_1", "vt_cl_2", "vt_other"}) V_put_value(n, "v", 0, 0);
    V_put_value("vt_cl_keep", "k", 1, 0);
    EXPECT_EQ(V_clear_value("vt_cl_*"), 0);
    EXPECT_EQ(V_get_value("vt_cl_1"), nullptr);
    EXPECT_EQ(V_get_value("vt_cl_2"), nullptr);
    EXPECT_STREQ(V_get_value("vt_cl_keep"), "k");
    EXPECT_STREQ(V_get_value("vt_other"), "v");
    EXPECT_EQ(V_clear_value("vt_cl_1"), -1);
    EXPECT_EQ(V_put_value("vt_cl_1", "back", 0, 0), 0);
    EXPECT_STREQ(V_get_value("vt_cl_1"), "back");
}

TEST(Variables, ScanListsLeftThenRightThenNode) {
    if (V_CMPpatt("vt_x", "vt_x") == -1) GTEST_SKIP() << "pattern matching not built yet";
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
    EXPECT_EQ(chain, a);
    EXPECT_EQ(a->next, c);
    EXPECT_EQ(c->next, b);
    EXPECT_EQ(b->next, nullptr);
    int maxlen = 0;
    EXPECT_EQ(count_tree(&b->avl, &maxlen), 4);
    EXPECT_EQ(maxlen, 6);
    for (V_USER *u : {a, b, c, fixed}) V_heap_free(u->hp);
    V_heap_free(hp);
}

}   // namespace
