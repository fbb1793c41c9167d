#include "objectstore/detail/key_path_dependencies.h"

namespace tasket::objectstore::detail {

namespace {

using Reads = std::map<std::uint32_t, std::set<std::string>>;

void collect(const BoundKeyPath& path, std::uint32_t root, const Model& model, Reads& out) {
    for (const auto& step : path.steps)
        if (step.entity != root)
            out[step.entity].insert(model.entity(step.entity).propertyName(step.property));
}

void collect(const BoundNode& node, std::uint32_t root, const Model& model, Reads& out) {
    if (node.kind == Predicate::Kind::comparison) {
        for (const auto* side : {&node.comparison.lhs, &node.comparison.rhs})
            if (const auto* path = std::get_if<BoundKeyPath>(side))
                collect(*path, root, model, out);
        return;
    }
    for (const auto& child : node.children)
        collect(child, root, model, out);
}

} // namespace

Reads keyPathReads(const std::optional<BoundPredicate>& predicate,
                   const std::vector<SortDescriptor>& sort, const Model& model,
                   std::uint32_t entity) {
    Reads out;
    if (predicate)
        collect(predicate->root(), entity, model, out);
    for (const auto& d : sort) {
        KeyPath path;
        std::size_t start = 0;
        while (start <= d.keyPath.size()) {
            auto dot = d.keyPath.find('.', start);
            if (dot == std::string::npos)
                dot = d.keyPath.size();
            path.components.push_back(d.keyPath.substr(start, dot - start));
            start = dot + 1;
        }
        if (auto bound = resolveKeyPath(model, entity, path))
            collect(*bound, entity, model, out);
    }
    return out;
}

std::set<std::uint32_t> keyPathDependencies(const std::optional<BoundPredicate>& predicate,
                                            const std::vector<SortDescriptor>& sort,
                                            const Model& model, std::uint32_t entity) {
    std::set<std::uint32_t> out;
    for (const auto& [dependency, properties] : keyPathReads(predicate, sort, model, entity))
        out.insert(dependency);
    return out;
}

} // namespace tasket::objectstore::detail
