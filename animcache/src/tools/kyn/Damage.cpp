#include "Damage.h"

#include <iostream>

#include "KynFormat.h"

namespace kyncli {

namespace {

// What a chunk of this tag is, in words.
std::string chunkWords(unsigned tag) {
    using namespace Kyn;
    switch (tag) {
        case kTagDKYN:
            return "magic chunk";
        case kTagMETA:
            return "metadata";
        case kTagSAMS:
            return "sample stream";
        case kTagJSAM:
            return "sample table";
        case kTagTIMS:
            return "time table";
        case kTagSAMP:
            return "sample";
        case kTagJOBJ:
            return "object table";
        case kTagSOBJ:
            return "object";
        default:
            return "";
    }
}

}  // namespace

std::string damageLine(const Kyn::KynDamage& damage, const std::vector<std::string>& names) {
    if (damage.kind == Kyn::KynDamage::kLoad) {
        const std::size_t end = damage.detail.find_last_not_of(' ');
        return "the file does not load: " + damage.detail.substr(0, end + 1);
    }
    // The subject: the sample and object concerned, or the kind of chunk; then where it lies.
    std::string subject;
    if (damage.sample >= 0) subject = "sample " + std::to_string(damage.sample);
    if (damage.object >= 0) {
        subject += (subject.empty() ? "object " : ", object ") + std::to_string(damage.object);
        if (std::size_t(damage.object) < names.size())
            subject += " " + names[std::size_t(damage.object)];
    } else if (damage.tag == Kyn::kTagJOBJ && !subject.empty()) {
        subject += ", its object table";
    }
    if (subject.empty()) subject = chunkWords(damage.tag);
    if (damage.offset >= 0)
        subject += (subject.empty() ? "offset " : " at offset ") + std::to_string(damage.offset);
    std::string line = subject.empty() ? "" : subject + ": ";
    line += Kyn::kynDamageText(damage.kind);
    if (!damage.detail.empty()) line += " (" + damage.detail + ")";
    return line;
}

Json damageJson(const Kyn::KynDamage& damage, const std::vector<std::string>& names) {
    Json json = {{"kind", Kyn::kynDamageName(damage.kind)}, {"text", damageLine(damage, names)}};
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
        std::cout << "  " << damageLine(damage[i], names) << '\n';
    if (damage.size() > limit)
        std::cout << "  and " << damage.size() - limit << " more (--json lists them all)\n";
}

std::vector<std::string> objectNames(const std::string& path) {
    std::vector<std::string> names;
    Kyn::KynSampleScanner scanner;
    if (scanner.open(path.c_str()))
        for (const Kyn::KynDOBJChunk* object : scanner.meta.objects) names.push_back(object->name);
    return names;
}

}  // namespace kyncli
