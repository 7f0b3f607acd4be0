// kyn cat FILE PATH [--sample S | --time T [--order N]] [--tag TAG] [--json | --csv]: the values
// of one object, static and animated, and of its attributes, at a stored sample or at a time.
// At a time, positions, a transform's matrix and double attributes are evaluated by the
// object's view; every other animated value is held from the sample that a hold picks.
#include <iostream>
#include <memory>

#include "Command.h"
#include "KynHelper.h"
#include "KynKinds.h"
#include "Values.h"

namespace kyncli {

namespace {

struct Options {
    std::string file;
    std::string path;
    int sample = -1;  // -1: not given
    float time = 0.0f;
    bool atTime = false;
    int order = 1;
    std::string tag;
    bool json = false;
    bool csv = false;
};

// One thing that cat prints: a chunk or an attribute, with where its values come from.
struct Entry {
    std::string name;  // a tag, or an attribute's name
    bool attribute = false;
    std::string label;   // an attribute's type label
    std::string source;  // "static", "animated", "evaluated", "held"
    const Kyn::KynChunk* chunk = nullptr;
    std::unique_ptr<Kyn::KynChunk> owned;  // values computed here
};

std::string tagText(unsigned tag) {
    return std::string(reinterpret_cast<const char*>(&tag), 4);
}

// The object named `path`: exactly that name, or else the library's lookup, which takes the
// first object whose last component matches and drops namespaces from the query.
int findObject(Kyn::KynRoMemCache& cache, const std::string& path) {
    for (std::size_t i = 0; i < cache.meta.objects.size(); ++i)
        if (cache.meta.objects[i]->name == path) return int(i);
    const int found = cache.findObjectIndex(path, 0);
    if (found >= 0)
        complain("cat", "",
                 "no object is named " + path + "; showing " +
                     cache.meta.objects[std::size_t(found)]->name +
                     ", whose path ends the same way");
    return found;
}

void addLeaves(const Kyn::KynChunk* chunk, const std::string& source, std::vector<Entry>& out) {
    if (const auto* group = dynamic_cast<const Kyn::KynGroupChunk*>(chunk)) {
        for (const Kyn::KynChunk* child : group->children) addLeaves(child, source, out);
        return;
    }
    Entry entry;
    entry.name = tagText(chunk->header.tag);
    entry.source = source;
    entry.chunk = chunk;
    out.push_back(std::move(entry));
}

template <class T>
std::unique_ptr<Kyn::KynChunk> computed(unsigned tag, const Kyn::KynHeader& like,
                                        const std::vector<T>& values) {
    return std::unique_ptr<Kyn::KynChunk>(
        new Kyn::KynLeafChunk<T>(tag, like.compound, like.dimension, values));
}

// Positions or a matrix evaluated at the time, in place of the held chunk; false when the view
// cannot blend it (double-stored positions between samples, for one).
bool evaluate(Kyn::KynHelperObj& view, const Options& options, Entry& entry) {
    Kyn::KynInterpolationHints hints;
    hints.order = options.order;
    Kyn::KynHelperObj::AnimationState state;
    const Kyn::KynHeader& stored = entry.chunk->header;
    if (stored.tag == Kyn::kTagPOSI) {
        auto* geometry = dynamic_cast<Kyn::GeometryKynObj*>(&view);
        if (geometry == nullptr) return false;
        int dimension = 0;
        if (stored.type == Kyn::kTypeDouble) {
            std::vector<double> values;
            if (!geometry->getPositionAtTime(options.time, hints, values, state, dimension))
                return false;
            entry.owned = computed(stored.tag, stored, values);
        } else {
            std::vector<float> values;
            if (!geometry->getPositionAtTime(options.time, hints, values, state, dimension))
                return false;
            entry.owned = computed(stored.tag, stored, values);
        }
    } else if (stored.tag == Kyn::kTagMTRX) {
        auto* transform = dynamic_cast<Kyn::TransformKynObj*>(&view);
        if (transform == nullptr) return false;
        if (stored.type == Kyn::kTypeDouble) {
            std::vector<double> matrix;
            if (!transform->getTransformAtTime(options.time, hints, matrix, state)) return false;
            entry.owned = computed(stored.tag, stored, matrix);
        } else {
            std::vector<float> matrix;
            if (!transform->getTransformAtTime(options.time, hints, matrix, state)) return false;
            entry.owned = computed(stored.tag, stored, matrix);
        }
    } else {
        return false;
    }
    entry.chunk = entry.owned.get();
    entry.source = "evaluated";
    return true;
}

// Everything the object holds at the sample (or, at a time, the held sample), its static
// chunks first, then the animated ones, then the attributes.
std::vector<Entry> collect(Kyn::KynRoMemCache& cache, int object, int sample,
                           Kyn::KynHelperObj* view, const Options& options) {
    using namespace Kyn;
    std::vector<Entry> entries;
    KynDOBJChunk* dobj = cache.meta.objects[std::size_t(object)];
    for (const KynChunk* chunk : dobj->children) addLeaves(chunk, "static", entries);
    const std::string animated = options.atTime ? "held" : "animated";
    if (sample >= 0)
        if (const KynGroupChunk* group = cache.getSample(sample, object))
            for (const KynChunk* child : group->children) {
                if (child->header.tag == kTagATRS || KynCache::findChunk(dobj, child->header.tag))
                    continue;  // attributes come below; a static chunk hides an animated one
                const std::size_t before = entries.size();
                addLeaves(child, animated, entries);
                if (options.atTime && view != nullptr)
                    for (std::size_t i = before; i < entries.size(); ++i)
                        evaluate(*view, options, entries[i]);
            }
    const KynDATRChunk* table = dobj->datr;
    for (int a = 0; table != nullptr && a < table->getNumAttrs(); ++a) {
        Entry entry;
        entry.name = table->getAttrName(a);
        entry.attribute = true;
        entry.label = table->getAttrType(a);
        if (!table->isAnimated(a)) {
            entry.source = "static";
            entry.chunk = table->getStaticData(a);
        } else {
            KynInterpolationHints hints;
            hints.order = options.order;
            std::vector<double> values;
            int dimension = 0;
            const KynChunk* held = sample >= 0 ? cache.getAttrData(sample, object, a) : nullptr;
            if (options.atTime && view != nullptr && held != nullptr &&
                held->header.type == kTypeDouble &&
                view->getAttrAtTime(options.time, a, hints, values, dimension)) {
                entry.owned = computed(kTagATTR, held->header, values);
                entry.chunk = entry.owned.get();
                entry.source = "evaluated";
            } else {
                entry.chunk = held;
                entry.source = animated;
            }
        }
        if (entry.chunk != nullptr) entries.push_back(std::move(entry));
    }
    return entries;
}

int valueCount(const Kyn::KynChunk* chunk) {
    int count = 0;
    visitLeaf(chunk, [&](const auto& values) { count = int(values.size()); });
    return count;
}

std::string entryTitle(const Entry& entry) {
    std::string title = entry.attribute ? "attribute " + entry.name : entry.name;
    if (entry.attribute && !entry.label.empty()) title += " (" + entry.label + ")";
    title += "  " + typeWords(entry.chunk->header) + "  " + entry.source;
    const int count = valueCount(entry.chunk);
    const int width = itemWidth(entry.chunk->header.dimension);
    if (width > 1 && count % width == 0)
        title += "  " + std::to_string(count / width) + " items of " + std::to_string(width);
    else
        title += "  " + std::to_string(count) + (count == 1 ? " value" : " values");
    return title;
}

// Values in rows: one item a row, scalars eight to a row, strings one to a row.
void printRows(const Kyn::KynChunk* chunk) {
    const int width = itemWidth(chunk->header.dimension);
    visitLeaf(chunk, [&](const auto& values) {
        using T = typename std::decay_t<decltype(values)>::value_type;
        const std::size_t perRow = std::is_same<T, std::string>::value ? 1
                                   : width > 1 && values.size() % std::size_t(width) == 0
                                       ? std::size_t(width)
                                       : 8;
        for (std::size_t i = 0; i < values.size(); ++i) {
            std::cout << (i % perRow == 0 ? "  " : " ") << valueText(values[i]);
            if (i % perRow == perRow - 1 || i + 1 == values.size()) std::cout << '\n';
        }
    });
}

void printCsv(const Entry& entry) {
    const int width = itemWidth(entry.chunk->header.dimension);
    visitLeaf(entry.chunk, [&](const auto& values) {
        const std::size_t perItem =
            width > 1 && values.size() % std::size_t(width) == 0 ? std::size_t(width) : 1;
        for (std::size_t item = 0; item * perItem < values.size(); ++item) {
            std::cout << csvField(entry.name) << ',' << item;
            for (std::size_t k = 0; k < perItem; ++k)
                std::cout << ',' << csvField(valueText(values[item * perItem + k]));
            std::cout << '\n';
        }
    });
}

Json valuesJson(const Kyn::KynChunk* chunk) {
    Json list = Json::array();
    const int width = itemWidth(chunk->header.dimension);
    visitLeaf(chunk, [&](const auto& values) {
        const bool items = width > 1 && values.size() % std::size_t(width) == 0;
        for (std::size_t i = 0; i < values.size(); ++i) {
            if (!items) {
                list.push_back(valueJson(values[i]));
            } else {
                if (i % std::size_t(width) == 0) list.push_back(Json::array());
                list.back().push_back(valueJson(values[i]));
            }
        }
    });
    return list;
}

Json entryJson(const Entry& entry) {
    const Kyn::KynHeader& h = entry.chunk->header;
    Json json;
    if (entry.attribute) {
        json["name"] = entry.name;
        json["label"] = entry.label;
    } else {
        json["tag"] = entry.name;
    }
    json["type"] = Kyn::kynTypeName(h.type);
    json["compound"] = h.compound != 0 ? Json(Kyn::kynCompoundName(h.compound)) : Json(nullptr);
    json["dimension"] = h.dimension != 0 ? Json(Kyn::kynDimensionName(h.dimension)) : Json(nullptr);
    json["source"] = entry.source;
    json["values"] = valuesJson(entry.chunk);
    return json;
}

int run(const Options& options) {
    Kyn::KynRoMemCache cache;
    // No bound: evaluation reads up to four samples beside the one whose chunks are listed.
    if (!loadCache(cache, options.file, "cat", 0)) return 1;
    const int object = findObject(cache, options.path);
    if (object < 0) {
        complain("cat", options.file, "no object is named " + options.path,
                 "kyn tree " + options.file + " lists the objects");
        return 1;
    }
    const int count = static_cast<int>(cache.meta.numSamples);
    int sample = options.sample < 0 ? (count > 0 ? 0 : -1) : options.sample;
    if (options.sample >= count && options.sample >= 0) {
        complain("cat", options.file,
                 "there is no sample " + std::to_string(options.sample) + ": the file holds " +
                     std::to_string(count),
                 count > 0 ? "give a sample from 0 to " + std::to_string(count - 1) : "");
        return 1;
    }
    Kyn::KynHelperObjFactory factory(&cache);
    std::unique_ptr<Kyn::KynHelperObj> view(factory.kynObjBuilder(object));
    if (options.atTime) {
        Kyn::KynInterpolationHints hold;
        std::vector<int> indices;
        std::vector<float> times;
        view->getEvalTimeAndSampleIndices(options.time, hold, indices, times);
        sample = indices.empty() ? -1 : indices[0];
    }
    std::vector<Entry> entries = collect(cache, object, sample, view.get(), options);
    if (!options.tag.empty()) {
        std::vector<Entry> chosen;
        std::string names;
        for (Entry& entry : entries) {
            names += (names.empty() ? "" : ", ") + entry.name;
            if (entry.name == options.tag) chosen.push_back(std::move(entry));
        }
        if (chosen.empty()) {
            complain("cat", options.file,
                     options.path + " has no chunk or attribute " + options.tag +
                         (names.empty() ? std::string() : "; it has " + names));
            return 1;
        }
        entries = std::move(chosen);
    }
    const std::string name = cache.meta.objects[std::size_t(object)]->name;
    const std::string kind = kindName(cache, object);
    if (options.json) {
        Json document = {{"object", name}, {"kind", kind}};
        if (options.atTime) {
            document["time"] = jsonNumber(options.time);
            document["order"] = options.order;
            document["heldSample"] = sample >= 0 ? Json(sample) : Json(nullptr);
        } else {
            document["sample"] = sample >= 0 ? Json(sample) : Json(nullptr);
            document["time"] =
                sample >= 0 ? jsonNumber(cache.getSampleTime(sample)) : Json(nullptr);
        }
        Json chunks = Json::array();
        Json attributes = Json::array();
        for (const Entry& entry : entries)
            (entry.attribute ? attributes : chunks).push_back(entryJson(entry));
        document["chunks"] = chunks;
        document["attributes"] = attributes;
        printJson(document);
        return 0;
    }
    if (options.csv) {
        for (const Entry& entry : entries) printCsv(entry);
        return 0;
    }
    std::cout << name << "  " << kindWords(kind) << "  ";
    if (options.atTime)
        std::cout << "frame " << number(options.time) << ", order " << options.order;
    else if (sample >= 0)
        std::cout << "sample " << sample << ", frame " << number(cache.getSampleTime(sample));
    else
        std::cout << "static file";
    std::cout << '\n';
    for (const Entry& entry : entries) {
        std::cout << entryTitle(entry) << '\n';
        printRows(entry.chunk);
    }
    return 0;
}

}  // namespace

void addCat(CLI::App& program, int& status) {
    auto* command = program.add_subcommand(
        "cat",
        "The values of one object: its static chunks, its animated chunks and its "
        "attributes, at a stored sample (the first by default) or evaluated at a time.");
    auto options = std::make_shared<Options>();
    command->add_option("FILE", options->file, "The cache file")->required();
    command->add_option("PATH", options->path, "The object's path, e.g. |root|mesh")->required();
    auto* sample = command->add_option("--sample", options->sample, "A stored sample, from 0")
                       ->check(CLI::NonNegativeNumber);
    auto* time = command->add_option(
        "--time", options->time,
        "A time in frames: positions, a transform's matrix and double attributes are "
        "evaluated there, other animated values are held from the sample a hold picks");
    command
        ->add_option("--order", options->order, "0 hold, 1 linear (default), 2 quadratic, 3 cubic")
        ->check(CLI::Range(0, 3))
        ->needs(time);
    sample->excludes(time);
    command->add_option("--tag", options->tag,
                        "Only the chunk of this tag (e.g. POSI) or the attribute of this name");
    auto* json = command->add_flag("--json", options->json, "Print one JSON document");
    command
        ->add_flag("--csv", options->csv,
                   "Print CSV: one line per item (name, item index, its values)")
        ->excludes(json);
    command->footer(
        "Exit status: 0 done, 1 the file, object, sample or tag was not found, 2 "
        "wrong usage.");
    command->callback([options, time, &status] {
        options->atTime = time->count() > 0;
        status = run(*options);
    });
}

}  // namespace kyncli
