// The tree of object paths: shared components, the dropped first component, names that land on
// the root, later objects that take over a node, and deep paths.
#include <gtest/gtest.h>

#include <typeinfo>

#include "KynHierarchy.h"
#include "ViewFiles.h"

using namespace Kyn;
using namespace kyntest_support;

namespace {

// Builds a cache of objects with these names; a name starting with "mesh:" gets a mesh tag.
class Hierarchy : public ::testing::Test {
  protected:
    void load(const std::vector<std::string>& names) {
        ViewFile file(1);
        for (const std::string& name : names) {
            const int o = file.addObject(name);
            if (name.find("mesh") != std::string::npos)
                file.addStatic(o, kTagMESH, std::vector<int>{1});
        }
        ASSERT_TRUE(cache.load(file.write("tree.kyn").c_str(), true));
    }
    static std::vector<std::string> childNames(const KynHierarchyNode* node) {
        std::vector<std::string> names;
        for (const KynHierarchyNode* child : node->children) names.push_back(child->name);
        return names;
    }
    KynRoMemCache cache;
};

TEST_F(Hierarchy, EmptyCachesAndDefaultTreesHoldARootOnly) {
    KynHierarchy none;
    ASSERT_NE(none.root, nullptr);
    EXPECT_TRUE(none.root->children.empty());
    EXPECT_EQ(none.root->objectIndex, -1);
    EXPECT_EQ(none.root->view, nullptr);
    EXPECT_EQ(none.root->parent, nullptr);
    KynRoMemCache empty;
    KynHierarchy fromEmpty(empty);
    EXPECT_TRUE(fromEmpty.root->children.empty());
}

TEST_F(Hierarchy, SharedComponentsBecomeOneNodeInOrderOfFirstMention) {
    load({"|a|mesh", "|a|c", "|b"});
    KynHierarchy tree(cache);
    KynHierarchyNode* root = tree.root;
    ASSERT_EQ(childNames(root), (std::vector<std::string>{"a", "b"}));
    KynHierarchyNode* a = root->children[0];
    EXPECT_EQ(a->objectIndex, -1);
    EXPECT_EQ(a->view, nullptr);
    EXPECT_EQ(a->parent, root);
    ASSERT_EQ(childNames(a), (std::vector<std::string>{"mesh", "c"}));
    EXPECT_EQ(a->children[0]->objectIndex, 0);
    EXPECT_EQ(typeid(*a->children[0]->view), typeid(MeshKynObj));
    EXPECT_EQ(a->children[1]->objectIndex, 1);
    EXPECT_EQ(typeid(*a->children[1]->view), typeid(KynHelperObj));
    EXPECT_EQ(a->children[1]->parent, a);
    EXPECT_EQ(root->children[1]->parent, root);
    EXPECT_EQ(root->children[1]->view->objectIndex, 2);
}

TEST_F(Hierarchy, TheTreeDoesNotDependOnTheOrderOfParentAndChild) {
    load({"|a|b", "|a"});
    KynHierarchy childFirst(cache);
    load({"|a", "|a|b"});
    KynHierarchy parentFirst(cache);
    for (KynHierarchy* tree : {&childFirst, &parentFirst}) {
        ASSERT_EQ(childNames(tree->root), std::vector<std::string>{"a"});
        const KynHierarchyNode* a = tree->root->children[0];
        ASSERT_EQ(childNames(a), std::vector<std::string>{"b"});
        EXPECT_NE(a->view, nullptr);
        EXPECT_EQ(a->view->objectIndex, a->objectIndex);
    }
    EXPECT_EQ(childFirst.root->children[0]->objectIndex, 1);
    EXPECT_EQ(parentFirst.root->children[0]->objectIndex, 0);
}

TEST_F(Hierarchy, TheFirstComponentIsDroppedAndLaterObjectsTakeOverANode) {
    load({"a|b", "x|b", "|ns:a", "|", "|A", "|a"});
    KynHierarchy tree(cache);
    ASSERT_EQ(childNames(tree.root), (std::vector<std::string>{"b", "ns:a", "", "A", "a"}));
    const KynHierarchyNode* b = tree.root->children[0];
    EXPECT_EQ(b->objectIndex, 1);
    EXPECT_EQ(b->view->objectIndex, 1);
    EXPECT_EQ(tree.root->children[2]->objectIndex, 3);
    EXPECT_EQ(tree.root->objectIndex, -1);
}

TEST_F(Hierarchy, NamesWithoutABarLandOnTheRoot) {
    load({"a", "|x", "", "mesh"});
    KynHierarchy tree(cache);
    EXPECT_EQ(tree.root->objectIndex, 3);
    ASSERT_NE(tree.root->view, nullptr);
    EXPECT_EQ(typeid(*tree.root->view), typeid(MeshKynObj));
    EXPECT_EQ(childNames(tree.root), std::vector<std::string>{"x"});
}

TEST_F(Hierarchy, FindOrCreateWalksAndExtendsFromAnyNode) {
    KynHierarchyNode top;
    const std::vector<std::string> path{"top", "p", "q"};
    KynHierarchyNode* q = top.findOrCreate(path.begin(), path.end());
    ASSERT_NE(q, &top);
    EXPECT_EQ(q->name, "q");
    EXPECT_EQ(q->parent->name, "p");
    EXPECT_EQ(q->parent->parent, &top);
    EXPECT_EQ(top.findOrCreate(path.begin(), path.end()), q);
    EXPECT_EQ(top.findOrCreate(path.begin(), path.begin() + 1), &top);
    EXPECT_EQ(top.children.size(), 1u);
}

TEST_F(Hierarchy, VeryDeepPathsAreBuiltAndDestroyed) {
    std::string deep;
    for (int i = 0; i < 200000; ++i) deep += "|n";
    load({deep});
    KynHierarchy tree(cache);
    const KynHierarchyNode* node = tree.root;
    int depth = 0;
    while (!node->children.empty()) {
        node = node->children[0];
        ++depth;
    }
    EXPECT_EQ(depth, 200000);
    EXPECT_EQ(node->objectIndex, 0);
}

}  // namespace
