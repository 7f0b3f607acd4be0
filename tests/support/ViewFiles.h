// Builds small cache files for the object view suites: objects with static chunks (children of
// their "DOBJ"), per-sample chunks (children of each "SOBJ"), and static or animated attributes
// (animated values in an "ATRS" group of each "SOBJ").
#ifndef KYN_VIEW_FILES_H
#define KYN_VIEW_FILES_H

#include <string>
#include <vector>

#include "KynChunks.h"

namespace kyntest_support {

class ViewFile {
  public:
    // `count` uniform samples at firstTime + i / rate.
    explicit ViewFile(int count, float firstTime = 1.0f, float rate = 1.0f);
    // Non-uniform samples at `times`, ascending.
    explicit ViewFile(const std::vector<float>& times);
    ~ViewFile();
    ViewFile(const ViewFile&) = delete;
    ViewFile& operator=(const ViewFile&) = delete;

    // A new object; its index.
    int addObject(const std::string& name);

    // A chunk in the object's metadata.
    template <class T>
    void addStatic(int object, unsigned tag, const std::vector<T>& data,
                   unsigned char dimension = 0) {
        meta.objects[at(object)]->children.push_back(leaf(tag, data, dimension));
    }
    // A chunk in the object's block of one sample.
    template <class T>
    void addAt(int sample, int object, unsigned tag, const std::vector<T>& data,
               unsigned char dimension = 0) {
        sampleObjects[at(sample)][at(object)]->children.push_back(leaf(tag, data, dimension));
    }
    // One chunk per sample, from sample 0 on, as many as `perSample` holds.
    template <class T>
    void addAnimated(int object, unsigned tag, const std::vector<std::vector<T>>& perSample,
                     unsigned char dimension = 0) {
        for (std::size_t s = 0; s < perSample.size(); ++s)
            addAt(static_cast<int>(s), object, tag, perSample[s], dimension);
    }

    // A static attribute; its index now (animated attributes added later shift it by one each).
    template <class T>
    int addStaticAttr(int object, const std::string& name, const std::vector<T>& data,
                      unsigned char dimension = 0) {
        Kyn::KynDATRChunk* table = attrTable(object);
        const int index = table->addAttr(false, name, "", Kyn::KynTypeOf<T>::code, 0, dimension);
        static_cast<Kyn::KynLeafChunk<T>*>(table->getStaticData(index))->data = data;
        return index;
    }
    // An animated attribute with one value per sample, as many as `perSample` holds; its index.
    template <class T>
    int addAnimatedAttr(int object, const std::string& name,
                        const std::vector<std::vector<T>>& perSample, unsigned char dimension = 0) {
        const int index =
            attrTable(object)->addAttr(true, name, "", Kyn::KynTypeOf<T>::code, 0, dimension);
        for (std::size_t s = 0; s < perSample.size(); ++s)
            attrValues(static_cast<int>(s), object)
                ->children.push_back(leaf(Kyn::kTagATTR, perSample[s], dimension));
        return index;
    }

    // Writes the file to a fresh scratch path named `name` and returns the path.
    std::string write(const std::string& name);

    Kyn::KynMETAChunk meta;  // adjustable before write, e.g. lastTime
    std::vector<float> times;

  private:
    static std::size_t at(int index) { return static_cast<std::size_t>(index); }
    template <class T>
    static Kyn::KynChunk* leaf(unsigned tag, const std::vector<T>& data, unsigned char dimension) {
        return new Kyn::KynLeafChunk<T>(tag, 0, dimension, data);
    }
    Kyn::KynDATRChunk* attrTable(int object);
    Kyn::KynGroupChunk* attrValues(int sample, int object);

    std::vector<std::vector<Kyn::KynGroupChunk*>> sampleObjects;  // [sample][object], owned
};

}  // namespace kyntest_support

#endif
