// Unit tests of the ordered tree: balance and order kept through inserts
// and removals, duplicate refusal, replacement choice, case-sensitive keys.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <random>
#include <string>

#include "values/avl_tree.h"

namespace {

struct Node {
    avl_t avl;
    std::string name;
};

struct Tree {
    avl_tree_t tree{nullptr, V_avlcmp};
    std::deque<Node> nodes;
    Node *make(const std::string &name) {
        Node &n = nodes.emplace_back();
        n.name = name;
        n.avl.key = n.name.data();
        return &n;
    }
    int add(const std::string &name) { return AVL_insert(&tree, &make(name)->avl); }
    const char *root() { return static_cast<const char *>(tree.root->key); }
};

const char *key(avl_t *a) {
    return static_cast<const char *>(a->key);
}

// Height of the subtree; every balance must equal the real height
// difference and stay within -1..1, and keys must be strictly ordered.
int check(avl_t *a, const char *lo = nullptr, const char *hi = nullptr, int *nodes = nullptr) {
    if (!a) return 0;
    if (nodes) ++*nodes;
    EXPECT_TRUE(!lo || strcmp(key(a), lo) > 0) << key(a);
    EXPECT_TRUE(!hi || strcmp(key(a), hi) < 0) << key(a);
    int l = check(a->left, lo, key(a), nodes);
    int r = check(a->right, key(a), hi, nodes);
    EXPECT_EQ(a->balance, r - l) << "at " << key(a);
    EXPECT_LE(std::abs(r - l), 1) << "at " << key(a);
    return 1 + std::max(l, r);
}

std::string name_of(int i) {
    char buf[16];
    snprintf(buf, sizeof buf, "k%05d", i);
    return buf;
}

TEST(AvlTree, AscendingInsertsStayBalanced) {
    Tree t;
    EXPECT_EQ(AVL_search(&t.tree, "x"), nullptr);
    EXPECT_EQ(AVL_remove(&t.tree, "x"), -1);
    for (int i = 0; i < 1000; i++) ASSERT_EQ(t.add(name_of(i)), 0);
    EXPECT_LE(check(t.tree.root), 11);   // a perfect tree of 1000 has height 10
    for (int i = 0; i < 1000; i += 7)
        EXPECT_EQ(AVL_search(&t.tree, name_of(i).c_str()), &t.nodes[i].avl);
}

TEST(AvlTree, DuplicatesRefusedAndCaseMatters) {
    Tree t;
    EXPECT_EQ(t.add("Name"), 0);
    EXPECT_EQ(t.add("name"), 0);
    Node *dup = t.make("name");
    avl_t sentinel{};
    dup->avl.left = dup->avl.right = &sentinel;
    EXPECT_EQ(AVL_insert(&t.tree, &dup->avl), -1);
    EXPECT_EQ(dup->avl.left, &sentinel);   // the refused node is untouched
    EXPECT_EQ(AVL_search(&t.tree, "name"), &t.nodes[1].avl);
    EXPECT_EQ(AVL_search(&t.tree, "NAME"), nullptr);
}

TEST(AvlTree, TwoChildrenReplacementFollowsTheLean) {
    Tree left_leaning;
    for (const char *k : {"m", "f", "t", "a"}) left_leaning.add(k);
    EXPECT_EQ(AVL_remove(&left_leaning.tree, "m"), 0);
    EXPECT_STREQ(left_leaning.root(), "f");   // predecessor
    check(left_leaning.tree.root);

    Tree balanced;
    for (const char *k : {"m", "f", "t"}) balanced.add(k);
    EXPECT_EQ(AVL_remove(&balanced.tree, "m"), 0);
    EXPECT_STREQ(balanced.root(), "t");   // successor
    check(balanced.tree.root);

    Tree single;
    single.add("only");
    EXPECT_EQ(AVL_remove(&single.tree, "only"), 0);
    EXPECT_EQ(single.tree.root, nullptr);
}

TEST(AvlTree, RandomInsertsAndRemovalsKeepTheInvariant) {
    Tree t;
    std::mt19937 rng(7);
    std::vector<int> ids(600);
    for (int i = 0; i < 600; i++) ids[i] = i;
    std::shuffle(ids.begin(), ids.end(), rng);
    for (int i : ids) ASSERT_EQ(t.add(name_of(i)), 0);
    std::shuffle(ids.begin(), ids.end(), rng);
    for (size_t n = 0; n < ids.size(); n++) {
        ASSERT_EQ(AVL_remove(&t.tree, name_of(ids[n]).c_str()), 0);
        if (n % 3 == 0) {
            ASSERT_EQ(t.add(name_of(ids[n])), 0);   // back in
        }
        check(t.tree.root);
    }
    int nodes = 0;
    check(t.tree.root, nullptr, nullptr, &nodes);
    EXPECT_EQ(nodes, 200);
}

}   // namespace
