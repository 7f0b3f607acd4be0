// The tree of object paths. Deep paths are walked and torn down with explicit stacks, so that a
// name of many components cannot exhaust the call stack.
#include "KynHierarchy.h"

#include <cstddef>
#include <utility>

namespace Kyn {

namespace {

// Every component between "|", the empty ones too: "|a|b" gives "", "a", "b".
std::vector<std::string> splitPath(const std::string& path) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    for (std::size_t bar = path.find('|'); bar != std::string::npos; bar = path.find('|', start)) {
        parts.push_back(path.substr(start, bar - start));
        start = bar + 1;
    }
    parts.push_back(path.substr(start));
    return parts;
}

}  // namespace

KynHierarchyNode::KynHierarchyNode(const std::string& name, KynHierarchyNode* parent)
    : parent(parent), name(name) {}

KynHierarchyNode::~KynHierarchyNode() {
    // Post-order walk: every descendant loses its children before it is deleted, so each
    // delete below runs a destructor with nothing left to recurse into.
    std::vector<std::pair<KynHierarchyNode*, std::size_t>> pending{{this, 0}};
    while (!pending.empty()) {
        KynHierarchyNode* node = pending.back().first;
        const std::size_t next = pending.back().second;
        if (next < node->children.size()) {
            ++pending.back().second;
            pending.emplace_back(node->children[next], 0);
            continue;
        }
        pending.pop_back();
        if (node == this) break;
        node->children.clear();
        delete node;
    }
    children.clear();
    delete view;
}

KynHierarchyNode* KynHierarchyNode::findOrCreate(std::vector<std::string>::const_iterator first,
                                                 std::vector<std::string>::const_iterator last) {
    KynHierarchyNode* node = this;
    for (auto component = first + 1; first != last && component != last; ++component) {
        KynHierarchyNode* match = nullptr;
        for (KynHierarchyNode* child : node->children) {
            if (child->name == *component) {
                match = child;
                break;
            }
        }
        if (match == nullptr) {
            match = new KynHierarchyNode(*component, node);
            node->children.push_back(match);
        }
        node = match;
    }
    return node;
}

KynHierarchy::KynHierarchy() : root(new KynHierarchyNode()) {}

KynHierarchy::KynHierarchy(KynRoMemCache& cache) : root(new KynHierarchyNode()) {
    KynHelperObjFactory factory(&cache);
    const int count = static_cast<int>(cache.meta.objects.size());
    for (int i = 0; i < count; ++i) {
        const KynDOBJChunk* object = cache.meta.objects[static_cast<std::size_t>(i)];
        const std::vector<std::string> parts = splitPath(object != nullptr ? object->name : "");
        // Component 0 stands for the root, whatever it holds.
        KynHierarchyNode* node = root->findOrCreate(parts.begin(), parts.end());
        delete node->view;
        node->view = factory.kynObjBuilder(i);
        node->objectIndex = i;
    }
}

KynHierarchy::~KynHierarchy() {
    delete root;
}

}  // namespace Kyn
