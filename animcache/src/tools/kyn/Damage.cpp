#include "Damage.h"

#include <iostream>

namespace kyncli {

Json damageJson(const Kyn::KynDamage& damage, const std::vector<std::string>& names) {
    Json json = {{"kind", Kyn::kynDamageName(damage.kind)},
                 {"text", Kyn::kynDamageLine(damage, names)}};
    json["chunk"] = damage.tag != 0
                        ? Json(std::string(reinterpret_cast<const char*>(&damage.tag), 4))
                        : Json(nullptr);
    json["offset"] = damage.offset >= 0 ? Json(damage.offset) : Json(nullptr);
    json["sample"] = damage.sample >= 0 ? Json(damage.sample) : Json(nullptr);
    json["object"] = damage.object >= 0 ? Json(damage.object) : Json(nullptr);
    json["path"] = damage.object >= 0 && std::size_t(damage.object) < names.size()
                       ? Json(names[std::size_t(damage.object)])
                       : Json(nullptr);
    json["detail"] = damage.detail;
    return json;
}

void printDamage(const std::vector<Kyn::KynDamage>& damage, const std::vector<std::string>& names,
                 std::size_t limit) {
    for (std::size_t i = 0; i < damage.size() && i < limit; ++i)
        std::cout << "  " << Kyn::kynDamageLine(damage[i], names) << '\n';
    if (damage.size() > limit)
        std::cout << "  and " << damage.size() - limit << " more (--json lists them all)\n";
}

}  // namespace kyncli
