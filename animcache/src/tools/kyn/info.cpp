// kyn info FILE [--json]: the file-wide values, and a line per object with its kind, what
// animates and its vertex count.
#include <ctime>
#include <iomanip>
#include <iostream>
#include <memory>

#include "Command.h"
#include "KynFormat.h"
#include "KynKinds.h"

namespace kyncli {

namespace {

// What an animated chunk of this tag holds, in words; empty for the kind markers.
std::string tagWords(unsigned tag) {
    using namespace Kyn;
    switch (tag) {
        case kTagPOSI:
            return "positions";
        case kTagVPNO:
            return "normals";
        case kTagPONO:
            return "face normals";
        case kTagVELO:
            return "velocities";
        case kTagMTRX:
            return "matrix";
        case kTagMTRO:
            return "rotate order";
        case kTagINHT:
            return "inherits transform";
        case kTagPCNT:
        case kTagPIDS:
        case kTagNCNT:
        case kTagNIDS:
            return "topology";
        case kTagBBOX:
            return "bounds";
        case kTagKNTU:
        case kTagKNTV:
            return "knots";
        case kTagDEGR:
            return "degree";
        case kTagFORM:
            return "form";
        case kTagMSPT:
            return "shape type";
        case kTagXFRM:
        case kTagMESH:
        case kTagNRBS:
        case kTagNRBC:
        case kTagELOC:
        case kTagLXCS:
            return "";
        default:
            return std::string(reinterpret_cast<const char*>(&tag), 4);
    }
}

std::string tagText(unsigned tag) {
    return std::string(reinterpret_cast<const char*>(&tag), 4);
}

// Everything `info` says about one object.
struct ObjectFacts {
    std::string path;
    std::string kind;
    std::vector<unsigned> animatedTags;  // in the order of its first sample
    std::vector<std::string> animatedAttributes;
    Json attributes = Json::array();
    int vertices = -1;  // -1: not a geometry
};

ObjectFacts factsOf(Kyn::KynRoMemCache& cache, int object) {
    using namespace Kyn;
    ObjectFacts facts;
    const KynDOBJChunk& dobj = *cache.meta.objects[std::size_t(object)];
    facts.path = dobj.name;
    facts.kind = kindName(cache, object);
    const int first = cache.meta.numSamples > 0 ? 0 : -1;
    if (first == 0) {
        if (const KynGroupChunk* sample = cache.getSample(0, object))
            for (const KynChunk* child : sample->children)
                if (child->header.tag != kTagATRS &&
                    KynCache::findChunk(const_cast<KynDOBJChunk*>(&dobj), child->header.tag) ==
                        nullptr)
                    facts.animatedTags.push_back(child->header.tag);
    }
    if (const KynDATRChunk* table = dobj.datr) {
        for (int a = 0; a < table->getNumAttrs(); ++a) {
            const bool animated = table->isAnimated(a);
            if (animated && first == 0) facts.animatedAttributes.push_back(table->getAttrName(a));
            facts.attributes.push_back({{"name", table->getAttrName(a)},
                                        {"type", table->getAttrType(a)},
                                        {"animated", animated}});
        }
    }
    if (facts.kind == mesh || facts.kind == nurbssurface || facts.kind == nurbscurve ||
        facts.kind == geometry)
        facts.vertices = cache.getNumVertices(first, object);
    return facts;
}

std::string whatAnimates(const ObjectFacts& facts) {
    std::vector<std::string> words;
    for (unsigned tag : facts.animatedTags) {
        const std::string word = tagWords(tag);
        if (!word.empty() && std::find(words.begin(), words.end(), word) == words.end())
            words.push_back(word);
    }
    for (const std::string& name : facts.animatedAttributes) words.push_back("attribute " + name);
    if (words.empty()) return "static";
    std::string text = "animates";
    for (std::size_t i = 0; i < words.size(); ++i) text += (i == 0 ? " " : ", ") + words[i];
    return text;
}

std::string dateText(int64_t date) {
    const std::time_t seconds = static_cast<std::time_t>(date);
    std::tm parts;
    if (gmtime_r(&seconds, &parts) == nullptr) return std::to_string(date);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &parts);
    return text;
}

const char* spaceName(int64_t space) {
    return space == 0 ? "world" : space == 1 ? "object" : "unknown";
}

void printText(const std::string& path, Kyn::KynRoMemCache& cache,
               const std::vector<ObjectFacts>& objects) {
    const Kyn::KynMETAChunk& meta = cache.meta;
    std::cout << "file: " << path << '\n' << "version: " << cache.dkyn.version << '\n';
    if (!meta.application.empty()) std::cout << "application: " << meta.application << '\n';
    if (!meta.sourceFile.empty()) std::cout << "source file: " << meta.sourceFile << '\n';
    if (meta.date != 0) std::cout << "date: " << dateText(meta.date) << '\n';
    if (meta.numSamples == 0)
        std::cout << "samples: 0 (a static file)\n";
    else
        std::cout << "samples: " << meta.numSamples << ", frames " << number(meta.firstTime)
                  << " to " << number(meta.lastTime) << ", " << samplingWords(meta.rate) << '\n';
    std::cout << "space: " << spaceName(meta.space);
    if (meta.space != 0 && meta.space != 1) std::cout << " (" << meta.space << ")";
    std::cout << "\nobjects: " << objects.size() << '\n';
    std::size_t pathWidth = 0;
    std::size_t kindWidth = 0;
    for (const ObjectFacts& facts : objects) {
        pathWidth = std::max(pathWidth, facts.path.size());
        kindWidth = std::max(kindWidth, kindWords(facts.kind).size());
    }
    for (const ObjectFacts& facts : objects) {
        std::cout << "  " << std::left << std::setw(int(pathWidth)) << facts.path << "  "
                  << std::setw(int(kindWidth)) << kindWords(facts.kind) << "  ";
        if (facts.vertices >= 0) std::cout << facts.vertices << " vertices, ";
        std::cout << whatAnimates(facts) << '\n';
    }
}

Json toJson(const std::string& path, Kyn::KynRoMemCache& cache,
            const std::vector<ObjectFacts>& objects) {
    const Kyn::KynMETAChunk& meta = cache.meta;
    Json document = {{"file", path},
                     {"version", cache.dkyn.version},
                     {"application", meta.application},
                     {"sourceFile", meta.sourceFile},
                     {"date", meta.date},
                     {"samples", meta.numSamples}};
    if (meta.numSamples > 0) {
        document["firstTime"] = jsonNumber(meta.firstTime);
        document["lastTime"] = jsonNumber(meta.lastTime);
        document["rate"] = jsonNumber(meta.rate);
        document["uniform"] = meta.rate != 0.0f;
    }
    document["space"] = spaceName(meta.space);
    Json list = Json::array();
    for (std::size_t i = 0; i < objects.size(); ++i) {
        const ObjectFacts& facts = objects[i];
        Json tags = Json::array();
        for (unsigned tag : facts.animatedTags) tags.push_back(tagText(tag));
        Json object = {{"index", i},
                       {"path", facts.path},
                       {"kind", facts.kind},
                       {"animated", tags},
                       {"animatedAttributes", facts.animatedAttributes},
                       {"attributes", facts.attributes}};
        if (facts.vertices >= 0) object["vertices"] = facts.vertices;
        list.push_back(object);
    }
    document["objects"] = list;
    return document;
}

int run(const std::string& path, bool json) {
    Kyn::KynRoMemCache cache;
    if (!loadCache(cache, path, "info")) return 1;
    std::vector<ObjectFacts> objects;
    for (int i = 0; i < int(cache.meta.objects.size()); ++i) objects.push_back(factsOf(cache, i));
    if (json)
        printJson(toJson(path, cache, objects));
    else
        printText(path, cache, objects);
    return 0;
}

}  // namespace

void addInfo(CLI::App& program, int& status) {
    addFileCommand(
        program, status, "info",
        "The file-wide values, and a line per object: path, kind, vertex count, and what "
        "animates (from the first sample).",
        "0 done, 1 the file could not be read, 2 wrong usage.", run);
}

}  // namespace kyncli
