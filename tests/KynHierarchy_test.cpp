// The tree of object paths: shared components, the dropped first component, names that land on
// the root, later objects that take over a node, and deep paths.
#include <gtest/gtest.h>

#include <typeinfo>

#include "KynHierarchy.h"
#include "ViewFiles.h"

using namespace Kyn;
using namespace kyntest_support;

namespace {

// A subtree in one line: name, "=index" for an object (":mesh" when its view is a mesh view),
// children in braces. Checks the parent links and the views on the way.
std::string describe(const KynHierarchyNode* node) {
    std::string out = node->name;
    if (node->view != nullptr) {
        EXPECT_EQ(node->view->objectIndex, node->objectIndex);
        out += "=" + std::to_string(node->objectIndex);
        if (typeid(*node->view) == typeid(MeshKynObj))
            out += ":mesh";
        else if (typeid(*node->view) != typeid(KynHelperObj))
            out += ":other";
    } else {
        EXPECT_EQ(node->objectIndex, -1) << node->name;
    }
    for (std::size_t i = 0; i < node->children.size(); ++i) {
        EXPECT_EQ(node->children[i]->parent, node);
        out += (i == 0 ? "{" : " ") + describe(node->children[i]);
    }
    return node->children.empty() ? out : out + "}";
}

class Hierarchy : public ::testing::Test {
  protected:
    // Loads a cache of objects with these names; a name holding "mesh" gets a mesh tag.
    void load(const std::vector<std::string>& names) {
        ViewFile file(1);
        for (const std::string& name : names) {
            const int o = file.addObject(name);
            if (name.find("mesh") != std::string::npos)
                file.addStatic(o, kTagMESH, std::vector<int>{1});
        }
        ASSERT_TRUE(cache.load(file.write("tree.kyn").c_str(), true));
    }
    std::string treeOf(const std::vector<std::string>& names) {
        load(names);
        KynHierarchy tree(cache);
        EXPECT_EQ(tree.root->parent, nullptr);
        return describe(tree.root);
    }
    KynRoMemCache cache;
};

TEST_F(Hierarchy, EmptyCachesAndDefaultTreesHoldARootOnly) {
    KynHierarchy none;
    ASSERT_NE(none.root, nullptr);
    EXPECT_EQ(none.root->parent, nullptr);
    EXPECT_EQ(describe(none.root), "");
    KynRoMemCache empty;
    EXPECT_EQ(describe(KynHierarchy(empty).root), "");
}

// Components shared by several paths become one node, in order of first mention; the tree does
// not depend on whether a parent comes before its child.
TEST_F(Hierarchy, SharedComponentsBecomeOneNodeInOrderOfFirstMention) {
    EXPECT_EQ(treeOf({"|a|mesh", "|a|c", "|b"}), "{a{mesh=0:mesh c=1} b=2}");
    EXPECT_EQ(treeOf({"|a|b", "|a"}), "{a=1{b=0}}");
    EXPECT_EQ(treeOf({"|a", "|a|b"}), "{a=0{b=1}}");
}

// Whatever the first component holds, it stands for the root; a name without "|" (the empty
// one too) lands on the root itself. A later object on the same node takes it over.
TEST_F(Hierarchy, TheFirstComponentIsDroppedAndLaterObjectsTakeOverANode) {
    EXPECT_EQ(treeOf({"a|b", "x|b", "|ns:a", "|", "|A", "|a"}), "{b=1 ns:a=2 =3 A=4 a=5}");
    EXPECT_EQ(treeOf({"a", "|x", "", "mesh"}), "=3:mesh{x=1}");
}

TEST_F(Hierarchy, FindOrCreateWalksAndExtendsFromAnyNode) {
    KynHierarchyNode top;
    const std::vector<std::string> path{"top", "p", "q"};
    KynHierarchyNode* q = top.findOrCreate(path.begin(), path.end());
    EXPECT_EQ(describe(&top), "{p{q}}");
    EXPECT_EQ(q->name, "q");
    EXPECT_EQ(top.findOrCreate(path.begin(), path.end()), q);
    EXPECT_EQ(top.findOrCreate(path.begin(), path.begin() + 1), &top);
    EXPECT_EQ(top.children.size(), 1u);
}

// Built and torn down without recursion, so a name of many components cannot exhaust the stack.
TEST_F(Hierarchy, VeryDeepPathsAreBuiltAndDestroyed) {
    std::string deep;
    for (int i = 0; i < 200000; ++i) deep += "|n";
    load({deep});
    KynHierarchy tree(cache);
    const KynHierarchyNode* node = tree.root;
    int depth = 0;
    for (; !node->children.empty(); ++depth) node = node->children[0];
    EXPECT_EQ(depth, 200000);
    EXPECT_EQ(node->objectIndex, 0);
}

}  // namespace
