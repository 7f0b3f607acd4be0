// kyn tree FILE [--json]: the object paths as an indented tree, each node with its kind.
// Paths are split at "|"; a node that no object names is shown with the kind "-".
#include <iostream>
#include <memory>

#include "Command.h"

namespace kyncli {

namespace {

struct Node {
    std::string name;
    std::string path;
    std::string kind;  // empty when no object has this path
    std::vector<std::unique_ptr<Node>> children;

    Node* child(const std::string& component) {
        for (auto& c : children)
            if (c->name == component) return c.get();
        children.emplace_back(new Node());
        Node* added = children.back().get();
        added->name = component;
        added->path = path + "|" + component;
        return added;
    }
};

// The tree of all object paths, children in the order their first object comes.
void build(Kyn::KynRoMemCache& cache, Node& root) {
    for (int i = 0; i < int(cache.meta.objects.size()); ++i) {
        const std::string& path = cache.meta.objects[std::size_t(i)]->name;
        Node* node = &root;
        std::size_t start = !path.empty() && path[0] == '|' ? 1 : 0;
        for (;;) {
            const std::size_t bar = path.find('|', start);
            node = node->child(path.substr(start, bar - start));
            if (bar == std::string::npos) break;
            start = bar + 1;
        }
        node->kind = kindName(cache, i);
        node->path = path;
    }
}

void printText(const Node& node, int depth) {
    std::cout << std::string(std::size_t(2 * depth), ' ') << node.name << "  "
              << (node.kind.empty() ? "-" : kindWords(node.kind)) << '\n';
    for (const auto& child : node.children) printText(*child, depth + 1);
}

Json toJson(const Node& node) {
    Json children = Json::array();
    for (const auto& child : node.children) children.push_back(toJson(*child));
    return {{"name", node.name},
            {"path", node.path},
            {"kind", node.kind.empty() ? Json(nullptr) : Json(node.kind)},
            {"children", children}};
}

int run(const std::string& path, bool json) {
    Kyn::KynRoMemCache cache;
    if (!loadCache(cache, path, "tree")) return 1;
    Node root;
    build(cache, root);
    if (json) {
        Json top = Json::array();
        for (const auto& child : root.children) top.push_back(toJson(*child));
        printJson(top);
    } else {
        for (const auto& child : root.children) printText(*child, 0);
    }
    return 0;
}

}  // namespace

void addTree(CLI::App& program, int& status) {
    addFileCommand(program, status, "tree",
                   "The object paths as an indented tree, each node with its kind ('-' for a path "
                   "component that no object names).",
                   "0 done, 1 the file could not be read, 2 wrong usage.", run);
}

}  // namespace kyncli
