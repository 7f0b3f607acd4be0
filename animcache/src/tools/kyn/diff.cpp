// kyn diff A B [--tolerance EPS] [--max N] [--json]: compares two caches by content, object by
// object (paired by path) and sample by sample (paired by index), values within the tolerance
// counting as equal. Reports the first differences, each with its path, tag or attribute,
// sample and time, and the largest difference of all. The date of the files is not compared.
#include <cmath>
#include <iostream>
#include <map>
#include <memory>

#include "Command.h"
#include "Values.h"

namespace kyncli {

namespace {

struct Options {
    std::string a;
    std::string b;
    double tolerance = 0.0;
    int max = 10;
    bool json = false;
};

struct Difference {
    std::string path;  // the object; empty for the file as a whole
    std::string what;  // a tag, "attribute NAME", or what of the file
    int sample = -1;   // -1: static data or the file
    float time = 0.0f;
    std::string detail;
    double largest = 0.0;  // of the values that differ; 0 when not numeric
};

template <class T>
double gap(T x, T y) {
    const double dx = static_cast<double>(x);
    const double dy = static_cast<double>(y);
    if (std::isnan(dx) || std::isnan(dy)) return std::isnan(dx) && std::isnan(dy) ? 0.0 : INFINITY;
    if (dx == dy) return 0.0;  // equal infinities too
    return std::fabs(dx - dy);
}

std::string tagText(unsigned tag) {
    return std::string(reinterpret_cast<const char*>(&tag), 4);
}

class Differ {
  public:
    explicit Differ(const Options& options) : options(options) {}
    int run();

  private:
    void note(Difference difference) {
        ++total;
        if (int(shown.size()) < options.max) shown.push_back(std::move(difference));
    }
    Difference at(const std::string& path, const std::string& what, int sample) {
        Difference d;
        d.path = path;
        d.what = what;
        d.sample = sample;
        if (sample >= 0) d.time = a.getSampleTime(sample);
        return d;
    }
    void compareFile();
    void compareObject(int ia, int ib);
    void compareChunks(const std::string& path, const std::vector<Kyn::KynChunk*>& x,
                       const std::vector<Kyn::KynChunk*>& y, int sample, bool attributes,
                       const Kyn::KynDATRChunk* table);
    void compareLeaf(const Kyn::KynChunk* x, const Kyn::KynChunk* y, Difference where);
    void printText() const;
    Json toJson() const;

    const Options& options;
    Kyn::KynRoMemCache a;
    Kyn::KynRoMemCache b;
    std::vector<Difference> shown;
    int64_t total = 0;
    double largestGap = 0.0;
    Difference largestAt;
};

void Differ::compareFile() {
    const Kyn::KynMETAChunk& x = a.meta;
    const Kyn::KynMETAChunk& y = b.meta;
    auto differs = [&](const std::string& what, const std::string& p, const std::string& q) {
        if (p == q) return;
        Difference d = at("", what, -1);
        d.detail = p + " and " + q;
        note(d);
    };
    differs("samples", std::to_string(x.numSamples), std::to_string(y.numSamples));
    if (x.numSamples > 0 && y.numSamples > 0)
        differs("sampling", samplingWords(x.rate), samplingWords(y.rate));
    differs("space", std::to_string(x.space), std::to_string(y.space));
    differs("application", x.application, y.application);
    differs("source file", x.sourceFile, y.sourceFile);
    const int64_t samples = std::min(x.numSamples, y.numSamples);
    for (int s = 0; s < samples; ++s) {
        const float p = a.getSampleTime(s);
        const float q = b.getSampleTime(s);
        if (gap(p, q) != 0.0) {
            Difference d = at("", "time", s);
            d.detail = number(p) + " and " + number(q);
            note(d);
        }
    }
}

void Differ::compareLeaf(const Kyn::KynChunk* x, const Kyn::KynChunk* y, Difference where) {
    const Kyn::KynHeader& hx = x->header;
    const Kyn::KynHeader& hy = y->header;
    if (hx.type != hy.type || hx.compound != hy.compound || hx.dimension != hy.dimension) {
        where.detail = typeWords(hx) + " and " + typeWords(hy);
        note(where);
        return;
    }
    bool compared = visitLeaf(x, [&](const auto& first) {
        using Vector = std::decay_t<decltype(first)>;
        using T = typename Vector::value_type;
        const Vector* second = nullptr;
        visitLeaf(y, [&](const auto& other) {
            if constexpr (std::is_same<std::decay_t<decltype(other)>, Vector>::value)
                second = &other;
        });
        if (second == nullptr) return;
        if (first.size() != second->size()) {
            where.detail =
                std::to_string(first.size()) + " and " + std::to_string(second->size()) + " values";
            note(where);
            return;
        }
        std::size_t differing = 0;
        std::size_t worst = 0;
        double worstGap = -1.0;
        for (std::size_t i = 0; i < first.size(); ++i) {
            double g = 0.0;
            if constexpr (std::is_arithmetic<T>::value && !std::is_same<T, char>::value) {
                g = gap(first[i], (*second)[i]);
            } else {
                g = first[i] == (*second)[i] ? 0.0 : INFINITY;
            }
            if (g > options.tolerance) ++differing;
            if (g > worstGap) {
                worstGap = g;
                worst = i;
            }
        }
        if (worstGap > largestGap) {
            largestGap = worstGap;
            largestAt = where;
        }
        if (differing == 0) return;
        where.largest = worstGap;
        where.detail = std::to_string(differing) + " of " + std::to_string(first.size()) +
                       " values differ, most at value " + std::to_string(worst) + " (" +
                       valueText(first[worst]) + " and " + valueText((*second)[worst]) + ")";
        note(where);
    });
    if (!compared && hx.length != hy.length) {
        where.detail = "payloads of " + std::to_string(hx.length) + " and " +
                       std::to_string(hy.length) + " bytes";
        note(where);
    }
}

// Pairs two runs of chunks by position: their tags first, then each pair. Groups are walked.
void Differ::compareChunks(const std::string& path, const std::vector<Kyn::KynChunk*>& x,
                           const std::vector<Kyn::KynChunk*>& y, int sample, bool attributes,
                           const Kyn::KynDATRChunk* table) {
    std::string tagsX, tagsY;
    for (const Kyn::KynChunk* c : x) tagsX += (tagsX.empty() ? "" : " ") + tagText(c->header.tag);
    for (const Kyn::KynChunk* c : y) tagsY += (tagsY.empty() ? "" : " ") + tagText(c->header.tag);
    if (!attributes && tagsX != tagsY) {
        Difference d = at(path, "chunks", sample);
        d.detail = (tagsX.empty() ? "none" : tagsX) + " and " + (tagsY.empty() ? "none" : tagsY);
        note(d);
        return;
    }
    if (attributes && x.size() != y.size()) {
        Difference d = at(path, "attributes", sample);
        d.detail = std::to_string(x.size()) + " and " + std::to_string(y.size()) + " values";
        note(d);
        return;
    }
    for (std::size_t i = 0; i < x.size(); ++i) {
        const Kyn::KynChunk* p = x[i];
        const Kyn::KynChunk* q = y[i];
        std::string what = tagText(p->header.tag);
        if (attributes && table != nullptr) {
            // Animated values stand in "AATR" order, static ones in "SATR" order.
            const bool animated = sample >= 0;
            const int index = animated ? int(i) : int(table->aatr.names.size() + i);
            if (index < table->getNumAttrs()) what = "attribute " + table->getAttrName(index);
        }
        if (p->header.tag != q->header.tag && !attributes) continue;
        const auto* gx = dynamic_cast<const Kyn::KynGroupChunk*>(p);
        const auto* gy = dynamic_cast<const Kyn::KynGroupChunk*>(q);
        if (gx != nullptr && gy != nullptr) {
            const bool values = p->header.tag == Kyn::kTagATRS;
            compareChunks(path, gx->children, gy->children, sample, values,
                          values ? table : nullptr);
        } else if ((gx == nullptr) != (gy == nullptr)) {
            Difference d = at(path, what, sample);
            d.detail = "a group and a value";
            note(d);
        } else {
            compareLeaf(p, q, at(path, what, sample));
        }
    }
}

void Differ::compareObject(int ia, int ib) {
    const Kyn::KynDOBJChunk& x = *a.meta.objects[std::size_t(ia)];
    const Kyn::KynDOBJChunk& y = *b.meta.objects[std::size_t(ib)];
    compareChunks(x.name, x.children, y.children, -1, false, nullptr);
    const int na = x.datr ? x.datr->getNumAttrs() : 0;
    const int nb = y.datr ? y.datr->getNumAttrs() : 0;
    bool sameTable = na == nb;
    for (int i = 0; sameTable && i < na; ++i)
        sameTable = x.datr->getAttrName(i) == y.datr->getAttrName(i) &&
                    x.datr->getAttrType(i) == y.datr->getAttrType(i) &&
                    x.datr->isAnimated(i) == y.datr->isAnimated(i);
    if (!sameTable) {
        Difference d = at(x.name, "attributes", -1);
        d.detail = "different names, types or animation";
        note(d);
    } else if (x.datr != nullptr && y.datr != nullptr) {
        compareChunks(x.name, x.datr->atrs.children, y.datr->atrs.children, -1, true, x.datr);
    }
}

int Differ::run() {
    if (!loadCache(a, options.a, "diff", 2) || !loadCache(b, options.b, "diff", 2)) return 2;
    compareFile();
    std::map<std::string, int> inB;
    for (std::size_t i = 0; i < b.meta.objects.size(); ++i)
        inB.emplace(b.meta.objects[i]->name, int(i));
    std::vector<std::pair<int, int>> pairs;
    for (std::size_t i = 0; i < a.meta.objects.size(); ++i) {
        const std::string& name = a.meta.objects[i]->name;
        auto found = inB.find(name);
        if (found == inB.end()) {
            Difference d = at(name, "object", -1);
            d.detail = "only in " + options.a;
            note(d);
            continue;
        }
        pairs.emplace_back(int(i), found->second);
        inB.erase(found);
    }
    for (const auto& [name, index] : inB) {
        Difference d = at(name, "object", -1);
        d.detail = "only in " + options.b;
        note(d);
    }
    for (const auto& [ia, ib] : pairs) compareObject(ia, ib);
    const int samples = int(std::min(a.meta.numSamples, b.meta.numSamples));
    ProgressLine progress("comparing");
    for (int s = 0; s < samples; ++s) {
        for (const auto& [ia, ib] : pairs) {
            const Kyn::KynGroupChunk* x = a.getSample(s, ia);
            const Kyn::KynGroupChunk* y = b.getSample(s, ib);
            const std::string& name = a.meta.objects[std::size_t(ia)]->name;
            if (x == nullptr || y == nullptr) {
                Difference d = at(name, "sample", s);
                d.detail = std::string("it cannot be read in ") + (x ? options.b : options.a);
                note(d);
                continue;
            }
            compareChunks(name, x->children, y->children, s, false,
                          a.meta.objects[std::size_t(ia)]->datr);
        }
        progress.show(s + 1, samples);
    }
    if (options.json)
        printJson(toJson());
    else
        printText();
    return total == 0 ? 0 : 1;
}

std::string describe(const Difference& d) {
    std::string text = d.path.empty() ? d.what : d.path + " " + d.what;
    if (d.sample >= 0)
        text += ", sample " + std::to_string(d.sample) + " (frame " + number(d.time) + ")";
    return text;
}

void Differ::printText() const {
    if (total == 0) {
        std::cout << options.a << " and " << options.b << " are the same";
        if (options.tolerance > 0) std::cout << " within " << number(options.tolerance);
        std::cout << " (largest difference " << number(largestGap);
        if (largestGap > 0) std::cout << ", in " << describe(largestAt);
        std::cout << ")\n";
        return;
    }
    std::cout << options.a << " and " << options.b << " differ:\n";
    for (const Difference& d : shown) std::cout << "  " << describe(d) << ": " << d.detail << '\n';
    if (total > int64_t(shown.size()))
        std::cout << "  and " << total - int64_t(shown.size()) << " more differences\n";
    if (largestGap > 0)
        std::cout << "largest difference: " << number(largestGap) << ", in " << describe(largestAt)
                  << '\n';
}

Json Differ::toJson() const {
    Json list = Json::array();
    for (const Difference& d : shown) {
        Json item = {{"path", d.path.empty() ? Json(nullptr) : Json(d.path)}, {"what", d.what}};
        item["sample"] = d.sample >= 0 ? Json(d.sample) : Json(nullptr);
        item["time"] = d.sample >= 0 ? jsonNumber(d.time) : Json(nullptr);
        item["detail"] = d.detail;
        item["largest"] = jsonNumber(d.largest);
        list.push_back(item);
    }
    Json largest = {{"value", jsonNumber(largestGap)}};
    if (largestGap > 0) {
        largest["path"] = largestAt.path;
        largest["what"] = largestAt.what;
        largest["sample"] = largestAt.sample >= 0 ? Json(largestAt.sample) : Json(nullptr);
    }
    return {{"a", options.a},       {"b", options.b},
            {"same", total == 0},   {"tolerance", options.tolerance},
            {"differences", total}, {"shown", list},
            {"largest", largest}};
}

}  // namespace

void addDiff(CLI::App& program, int& status) {
    auto* command = program.add_subcommand(
        "diff",
        "Compares two caches by content: the file-wide values, each object (paired by "
        "path) and each sample (paired by index). Numbers that differ by no more than "
        "the tolerance count as equal. The date is not compared.");
    auto options = std::make_shared<Options>();
    command->add_option("A", options->a, "The first cache file")->required();
    command->add_option("B", options->b, "The second cache file")->required();
    command
        ->add_option("--tolerance", options->tolerance,
                     "Largest difference between two numbers that still counts as equal "
                     "(default 0: exact)")
        ->check(CLI::NonNegativeNumber);
    command->add_option("--max", options->max, "How many differences to list (default 10)")
        ->check(CLI::NonNegativeNumber);
    command->add_flag("--json", options->json, "Print one JSON document");
    command->footer(
        "Exit status: 0 the same within the tolerance, 1 different, 2 failure or "
        "wrong usage.");
    command->callback([options, &status] { status = Differ(*options).run(); });
}

}  // namespace kyncli
