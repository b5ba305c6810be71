// Unit tests of the ordered tree: balance kept through inserts and
// removals, duplicate refusal, replacement choice and case-sensitive keys.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "values/avl_tree.h"

namespace {

struct Node {
    avl_t avl;
    std::string name;
};

struct Forest {
    avl_tree_t tree{nullptr, V_avlcmp};
    std::vector<Node *> nodes;
    ~Forest() {
        for (Node *n : nodes) delete n;
    }
    Node *make(const std::string &name) {
        Node *n = new Node{};
        n->name = name;
        n->avl.key = n->name.data();
        n->avl.data = n;
        nodes.push_back(n);
        return n;
    }
    int add(const std::string &name) { return AVL_insert(&tree, &make(name)->avl); }
};

const char *key(avl_t *a) { return static_cast<const char *>(a->key); }

// Height of the subtree; fails the test when a balance is out of range or
// does not match the real heights, or the order is broken.
int check(avl_t *a, const char *lo, const char *hi) {
    if (!a) return 0;
    if (lo) {
        EXPECT_GT(strcmp(key(a), lo), 0) << key(a);
    }
    if (hi) {
        EXPECT_LT(strcmp(key(a), hi), 0) << key(a);
    }
    int l = check(a->left, lo, key(a));
    int r = check(a->right, key(a), hi);
    EXPECT_EQ(a->balance, r - l) << "at " << key(a);
    EXPECT_LE(std::abs(r - l), 1) << "at " << key(a);
    return 1 + std::max(l, r);
}

int walk(avl_t *a, std::vector<std::string> &out) {
    if (!a) return 0;
    walk(a->left, out);
    out.push_back(key(a));
    walk(a->right, out);
    return 0;
}

std::string name_of(int i) {
    char buf[16];
    snprintf(buf, sizeof buf, "k%05d", i);
    return buf;
}

TEST(AvlTree, EmptyTree) {
    Forest f;
    EXPECT_EQ(AVL_search(&f.tree, "x"), nullptr);
    EXPECT_EQ(AVL_remove(&f.tree, "x"), -1);
}

TEST(AvlTree, AscendingInsertsStayBalanced) {
    Forest f;
    for (int i = 0; i < 1000; i++) ASSERT_EQ(f.add(name_of(i)), 0);
    int h = check(f.tree.root, nullptr, nullptr);
    EXPECT_LE(h, 11);   // 1.44 log2(1000) is about 14; a perfect tree has 10
    for (int i = 0; i < 1000; i++) {
        avl_t *a = AVL_search(&f.tree, name_of(i).c_str());
        ASSERT_NE(a, nullptr);
        EXPECT_EQ(key(a), name_of(i));
    }
    EXPECT_EQ(AVL_search(&f.tree, "k01000"), nullptr);
}

TEST(AvlTree, DuplicateIsRefusedAndLeftUntouched) {
    Forest f;
    f.add("b");
    f.add("a");
    f.add("c");
    Node *dup = f.make("b");
    avl_t sentinel{};
    dup->avl.left = &sentinel;
    dup->avl.right = &sentinel;
    dup->avl.balance = 1;
    EXPECT_EQ(AVL_insert(&f.tree, &dup->avl), -1);
    EXPECT_EQ(dup->avl.left, &sentinel);
    EXPECT_EQ(dup->avl.right, &sentinel);
    EXPECT_EQ(dup->avl.balance, 1);
    EXPECT_EQ(AVL_search(&f.tree, "b"), &f.nodes[0]->avl);
}

TEST(AvlTree, KeysAreCaseSensitive) {
    Forest f;
    EXPECT_EQ(f.add("Name"), 0);
    EXPECT_EQ(f.add("name"), 0);
    EXPECT_EQ(f.add("NAME"), 0);
    EXPECT_EQ(AVL_search(&f.tree, "name"), &f.nodes[1]->avl);
    EXPECT_EQ(AVL_search(&f.tree, "nAme"), nullptr);
}

TEST(AvlTree, RemoveLeafOneChildAndRoot) {
    Forest f;
    f.add("only");
    EXPECT_EQ(AVL_remove(&f.tree, "only"), 0);
    EXPECT_EQ(f.tree.root, nullptr);

    f.add("m");
    f.add("f");
    f.add("t");
    f.add("a");   // f now has one child
    EXPECT_EQ(AVL_remove(&f.tree, "f"), 0);
    EXPECT_EQ(f.tree.root->left, &f.nodes[4]->avl);
    EXPECT_EQ(AVL_remove(&f.tree, "t"), 0);   // a leaf
    check(f.tree.root, nullptr, nullptr);
    std::vector<std::string> keys;
    walk(f.tree.root, keys);
    EXPECT_EQ(keys, (std::vector<std::string>{"a", "m"}));
    EXPECT_EQ(AVL_remove(&f.tree, "t"), -1);
}

TEST(AvlTree, TwoChildrenReplacementFollowsTheLean) {
    Forest f;
    for (const char *k : {"m", "f", "t", "a"}) f.add(k);   // root leans left
    ASSERT_EQ(f.tree.root->balance, -1);
    EXPECT_EQ(AVL_remove(&f.tree, "m"), 0);
    EXPECT_STREQ(key(f.tree.root), "f");   // predecessor
    check(f.tree.root, nullptr, nullptr);

    Forest g;
    for (const char *k : {"m", "f", "t"}) g.add(k);   // balanced root
    EXPECT_EQ(AVL_remove(&g.tree, "m"), 0);
    EXPECT_STREQ(key(g.tree.root), "t");   // successor
    EXPECT_EQ(g.tree.root->left, &g.nodes[1]->avl);
    EXPECT_EQ(g.tree.root->balance, -1);

    Forest h;
    for (const char *k : {"m", "f", "t", "w", "p"}) h.add(k);   // right-leaning
    EXPECT_EQ(AVL_remove(&h.tree, "m"), 0);
    EXPECT_STREQ(key(h.tree.root), "p");
    check(h.tree.root, nullptr, nullptr);
}

TEST(AvlTree, RandomInsertsAndRemovalsKeepTheInvariant) {
    Forest f;
    std::mt19937 rng(7);
    std::vector<int> ids(600);
    for (int i = 0; i < 600; i++) ids[i] = i;
    std::shuffle(ids.begin(), ids.end(), rng);
    for (int i : ids) ASSERT_EQ(f.add(name_of(i)), 0);
    check(f.tree.root, nullptr, nullptr);

    std::shuffle(ids.begin(), ids.end(), rng);
    for (size_t n = 0; n < ids.size(); n++) {
        ASSERT_EQ(AVL_remove(&f.tree, name_of(ids[n]).c_str()), 0);
        if (n % 50 == 0) check(f.tree.root, nullptr, nullptr);
        if (n % 3 == 0) {
            ASSERT_EQ(f.add(name_of(ids[n])), 0);   // back in
        }
    }
    check(f.tree.root, nullptr, nullptr);
    std::vector<std::string> keys;
    walk(f.tree.root, keys);
    EXPECT_EQ(keys.size(), 200u);
    EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end()));
}

TEST(AvlTree, WorkersKeepEqualKeysAndRemoveByIdentity) {
    Forest f;
    std::vector<Node *> same;
    for (int i = 0; i < 20; i++) {
        Node *n = f.make(i % 2 ? "dup" : name_of(i));
        if (i % 2) same.push_back(n);
        n->avl.left = n->avl.right = nullptr;
        n->avl.balance = 0;
        avl_insert(&f.tree, &n->avl);
    }
    for (Node *n : same) {
        avl_remove(&f.tree, &n->avl);
        std::vector<std::string> keys;
        walk(f.tree.root, keys);
        EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end()));
    }
    EXPECT_EQ(AVL_search(&f.tree, "dup"), nullptr);
    for (int i = 0; i < 20; i += 2) EXPECT_NE(AVL_search(&f.tree, name_of(i).c_str()), nullptr);
}

}  // namespace
