// KynHierarchy: the objects of a cache as a tree of path components.
//
// Object names are paths with "|" between components. The tree has one node per component and,
// at each node that is an object, a view built by KynHelperObjFactory. It is built once from a
// loaded cache and does not follow later changes of the cache.
//
// Ownership: the tree owns its nodes, and each node owns its children and its view. Views hold
// a pointer to the cache, so the cache must outlive the tree. Nodes are reached through their
// public members. Threads: the tree and its views go with their cache, one thread at a time.
//
// Peculiarities kept: the first component of every name is dropped, whatever it holds (it is
// empty for the usual leading "|"); a name with no "|" (the empty name too) lands on the root
// itself; components are compared byte for byte, namespaces included. When two objects resolve
// to one node, the later one holds it and the earlier view is destroyed.
#ifndef KYN_HIERARCHY_H
#define KYN_HIERARCHY_H

#include <string>
#include <vector>

#include "KynHelper.h"
#include "KynRoMemCache.h"

namespace Kyn {

class KynHierarchyNode {
  public:
    KynHierarchyNode() = default;
    KynHierarchyNode(const std::string& name, KynHierarchyNode* parent);
    // Destroys the children first, in order, then the view.
    ~KynHierarchyNode();
    KynHierarchyNode(const KynHierarchyNode&) = delete;
    KynHierarchyNode& operator=(const KynHierarchyNode&) = delete;

    // `first` is this node's component. Walks, and extends where missing, the path of the
    // components behind it, and returns the node of the last one (this node if there is none).
    KynHierarchyNode* findOrCreate(std::vector<std::string>::const_iterator first,
                                   std::vector<std::string>::const_iterator last);

    int objectIndex = -1;                     // the object of this node, or -1
    KynHelperObj* view = nullptr;             // owned; null for a node with no object
    std::vector<KynHierarchyNode*> children;  // owned, in order of first mention
    KynHierarchyNode* parent = nullptr;       // not owned; null at the root
    std::string name;                         // this node's component; empty at the root
};

class KynHierarchy {
  public:
    // A tree of only a root.
    KynHierarchy();
    // The tree of all objects of `cache`.
    explicit KynHierarchy(KynRoMemCache& cache);
    ~KynHierarchy();
    KynHierarchy(const KynHierarchy&) = delete;
    KynHierarchy& operator=(const KynHierarchy&) = delete;

    KynHierarchyNode* root;  // owned, never null
};

}  // namespace Kyn

#endif
