// KynChunks: the in-memory mirror of the chunks of a cache file.
//
// Every chunk reads itself from a KynFile after its header has been read, writes itself back,
// and prints itself. KynLeafChunk<T> holds a vector of one element type; KynGroupChunk holds
// child chunks; the classes of fixed tags unpack the children they know into plain fields:
//   file      := DKYN META SAMS*
//   META      := WAPP? SFIL? DATE? NSAM (FTIM LTIM RATE)? SPAC NOBJ DOBJ* chunk*
//   DOBJ      := NAME? DATR? chunk*
//   DATR      := (SATR ATRS)? AATR?
//   SATR/AATR := NAME? TYPE?
//   SAMS      := TIMS? FREE? JSAM FREE? SAMP*
//   SAMP      := JOBJ SOBJ*
//
// Ownership: a group owns its children and deletes them; KynMETAChunk owns its objects and
// KynDOBJChunk its attribute table. Chunks print nothing on failure and answer false; only a
// bad attribute index on KynDATRChunk prints a line and throws a bool to the caller.
// Chunks belong to one thread.
#ifndef KYN_CHUNKS_H
#define KYN_CHUNKS_H

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "KynFile.h"
#include "KynFormat.h"

namespace Kyn {

class KynChunk {
  public:
    KynChunk(unsigned tag, unsigned char type);
    virtual ~KynChunk();
    virtual void reset();
    virtual int64_t getLength() const;
    // Reads the payload of a chunk whose header `header` has just been read from `file`. A
    // chunk of unknown type skips it.
    virtual bool read(const KynHeader& header, KynFile& file);
    virtual bool write(KynFile& file) const;
    virtual std::ostream& print(std::ostream& os, int depth) const;

    // An empty chunk of the class that `type` asks for; a plain KynChunk for codes above 6.
    static KynChunk* create(unsigned tag, unsigned char type);
    // A deep copy owned by the caller, or null for null, "FREE", raw byte and unknown chunks.
    static KynChunk* copy(const KynChunk* source);

    KynHeader header;

  protected:
    // Indentation, header text and " : ", the start of every printed chunk.
    std::ostream& printHead(std::ostream& os, int depth) const;
};

// ". " once per level of depth.
std::ostream& printIndent(std::ostream& os, int depth);

template <class T>
class KynLeafChunk : public KynChunk {
  public:
    typedef std::vector<T> data_type;

    KynLeafChunk();
    explicit KynLeafChunk(unsigned tag);
    KynLeafChunk(unsigned tag, const data_type& data);
    KynLeafChunk(unsigned tag, unsigned char compound, unsigned char dimension);
    KynLeafChunk(unsigned tag, unsigned char compound, unsigned char dimension,
                 const data_type& data);
    ~KynLeafChunk() override;

    void reset() override;
    bool read(const KynHeader& header, KynFile& file) override;
    bool write(KynFile& file) const override;
    std::ostream& print(std::ostream& os, int depth) const override;

    unsigned char getCompound() const { return header.compound; }
    void setCompound(unsigned char compound) { header.compound = compound; }
    unsigned char getDimension() const { return header.dimension; }
    void setDimension(unsigned char dimension) { header.dimension = dimension; }
    // Editing data leaves header.length stale until the next write or read.
    data_type& getData() { return data; }
    const data_type& getData() const { return data; }

    // The payload length that `data` takes on disk.
    int64_t dataLength() const;

    data_type data;
};

extern template class KynLeafChunk<char>;
extern template class KynLeafChunk<std::string>;
extern template class KynLeafChunk<int>;
extern template class KynLeafChunk<float>;
extern template class KynLeafChunk<long>;
extern template class KynLeafChunk<double>;

class KynGroupChunk : public KynChunk {
  public:
    explicit KynGroupChunk(unsigned tag);
    ~KynGroupChunk() override;

    void reset() override;
    // A prediction from memory: the children's lengths and headers.
    int64_t getLength() const override;
    bool read(const KynHeader& header, KynFile& file) override;
    bool write(KynFile& file) const override;
    std::ostream& print(std::ostream& os, int depth) const override;

    virtual void removeAllChildren();
    // Hooks by which a subclass takes the children it knows into fields of its own. `handled`
    // is set only when tag and form match; other chunks land in `children`.
    virtual bool readChild(const KynHeader& header, KynFile& file, bool& handled);
    virtual bool writeChildren(KynFile& file) const;
    virtual std::ostream& printChildren(std::ostream& os, int depth) const;

    std::vector<KynChunk*> children;  // owned, in file order

  protected:
    void deleteChildren();
};

// The magic chunk at offset 0 of every file: one int64, the format version.
class KynDKYNChunk : public KynChunk {
  public:
    KynDKYNChunk();
    ~KynDKYNChunk() override;
    void reset() override;
    bool read(const KynHeader& header, KynFile& file) override;
    bool write(KynFile& file) const override;
    std::ostream& print(std::ostream& os, int depth) const override;

    int64_t version = 2;
};

// The names and type labels of static ("SATR") or animated ("AATR") attributes.
class KynAttrNamesChunk : public KynGroupChunk {
  public:
    explicit KynAttrNamesChunk(unsigned tag);
    ~KynAttrNamesChunk() override;
    void reset() override;
    int64_t getLength() const override;
    bool readChild(const KynHeader& header, KynFile& file, bool& handled) override;
    // Evens `types` out to the length of `names` before it writes them.
    bool writeChildren(KynFile& file) const override;
    std::ostream& printChildren(std::ostream& os, int depth) const override;
    // Erases positions first up to, not including, last from both lists.
    virtual void remove(unsigned long first, unsigned long last);

    std::vector<std::string> names;
    mutable std::vector<std::string> types;
};

class KynSATRChunk : public KynAttrNamesChunk {
  public:
    KynSATRChunk();
    ~KynSATRChunk() override;
};

class KynAATRChunk : public KynAttrNamesChunk {
  public:
    KynAATRChunk();
    ~KynAATRChunk() override;
};

// The values of static attributes, one child per entry of "SATR".
class KynATRSChunk : public KynGroupChunk {
  public:
    KynATRSChunk();
    ~KynATRSChunk() override;
};

// The attribute table of one object. Attribute index: the A animated attributes first, in
// "AATR" order, then the static ones, so static attribute i has index A + i. Accessors given an
// index outside 0 .. A + S - 1 print " DATR attribute index out of bounds" and throw false.
class KynDATRChunk : public KynGroupChunk {
  public:
    KynDATRChunk();
    ~KynDATRChunk() override;
    void reset() override;
    int64_t getLength() const override;
    bool readChild(const KynHeader& header, KynFile& file, bool& handled) override;
    bool writeChildren(KynFile& file) const override;
    std::ostream& printChildren(std::ostream& os, int depth) const override;

    int getNumAttrs() const;
    const std::string& getAttrName(int index) const;
    const std::string& getAttrType(int index) const;
    int findAttr(const std::string& name) const;
    bool setAttrName(int index, const std::string& name);
    bool setAttrType(int index, const std::string& type);
    bool isAnimated(int index) const;
    // The value chunk of a static attribute, owned by `atrs`; null for an animated one.
    KynChunk* getStaticData(int index) const;
    int getAnimatedDataIndex(int index) const;
    int addAttr(const bool& animated, const std::string& name, const std::string& type,
                unsigned char dataType, unsigned char compound, unsigned char dimension);
    int removeStaticAttrs(int start, int count);
    int removeAnimatedAttrs(int start, int count);
    void mergeStaticAttributes(const KynDATRChunk* other);

    KynSATRChunk satr;
    KynAATRChunk aatr;
    KynATRSChunk atrs;

  private:
    void checkIndex(int index) const;
};

// One object of the metadata: its name, its attributes, and its static chunks in `children`.
class KynDOBJChunk : public KynGroupChunk {
  public:
    KynDOBJChunk();
    ~KynDOBJChunk() override;
    void reset() override;
    int64_t getLength() const override;
    void removeAllChildren() override;
    bool readChild(const KynHeader& header, KynFile& file, bool& handled) override;
    bool writeChildren(KynFile& file) const override;
    std::ostream& printChildren(std::ostream& os, int depth) const override;

    std::string name;
    KynDATRChunk* datr = nullptr;  // owned
};

// The file-wide table of contents and the list of objects.
class KynMETAChunk : public KynGroupChunk {
  public:
    KynMETAChunk();
    ~KynMETAChunk() override;
    void reset() override;
    // The fixed formula that decides whether metadata can be rewritten in place: it counts
    // "WAPP", "SFIL" and "DATE" always and the generic children never.
    int64_t getLength() const override;
    void removeAllChildren() override;
    bool readChild(const KynHeader& header, KynFile& file, bool& handled) override;
    bool writeChildren(KynFile& file) const override;
    std::ostream& printChildren(std::ostream& os, int depth) const override;

    // Where `write` puts the payload of the fixed-width field `tag` ("DATE", "NSAM", "FTIM",
    // "LTIM", "RATE", "SPAC" or "NOBJ"), counted from the first byte of the chunk's own header;
    // -1 when it leaves the field out, or for any other tag. A written field can be patched in
    // place: the metadata keeps its length.
    int64_t fieldOffset(unsigned tag) const;

    // A new object of that name, with no attributes and no static chunks, appended to `objects`;
    // the metadata owns it. Duplicate names are not checked.
    KynDOBJChunk* addDOBJ(const char* name);

    int64_t numSamples = 0;
    float firstTime;
    float lastTime;
    float rate = 1.0f;
    int64_t space = 1;
    std::vector<KynDOBJChunk*> objects;  // owned, in object index order
    std::string application;
    std::string sourceFile;
    int64_t date = 0;
};

// The writer of one "SAMS" group, sample by sample. The tables at the front of the group are
// written as placeholders with "FREE" reserves behind them and overwritten in place at the end;
// appendStart reopens the last group of a file and grows its tables into the reserves.
//
// By default a file whose writer dies before writeEnd holds tables of zeros (and appendStart
// has already grown them and zeroed the group's length): the samples are on disk, but neither
// their offsets nor, in a non-uniform file, their times. With `commit` set, each sample is
// committed as it closes (writeEndSAMPChunk, writeSAMPChunk):
//   1. the sample is handed to the system;
//   2. its "TIMS" entry, then its "JSAM" entry, are written in place; in a group with a reserve
//      each table's length is set to the samples committed, with its "FREE" moved behind it,
//      as an append leaves them, and the group's length is set to its end;
//   3. with followMetadata, the metadata's "LTIM", then its "NSAM", are set to the samples
//      committed: the count is the last thing written, so a file whose writer dies loads
//      with exactly the samples committed, and recovery finds every committed sample's time;
// each step handed to the system in this order (with kCommitEachSampleToDisk, everything up to
// step 3 is on the disk before step 3, and step 3 before the next sample). appendStart then
// leaves the group's tables and length as they were until the first commit. What writeEnd
// leaves is byte for byte the file of the default: the tables in full, the "FREE" chunks and
// the metadata's count and last time as given, whatever was committed.
class KynSAMSChunk : public KynGroupChunk {
  public:
    // When samples reach the file: at writeEnd (the default), or each as it closes, handed to
    // the system (it survives the end of the process) or also to the disk (it survives a
    // power cut; two fsyncs per sample).
    enum Commit { kCommitAtEnd, kCommitEachSample, kCommitEachSampleToDisk };

    KynSAMSChunk();
    ~KynSAMSChunk() override;
    void reset() override;
    // A sample stream never passes through the generic tree.
    bool read(const KynHeader& header, KynFile& file) override;
    bool write(KynFile& file) const override;

    bool writeStart(KynFile& file, int64_t numSamples, int64_t numFree, bool nonUniform);
    bool writeStartSAMPChunk(KynFile& file, int64_t numObjects, const float* time);
    bool writeStartSOBJChunk(KynFile& file);
    bool writeEndSOBJChunk(KynFile& file);
    bool writeSOBJChunk(KynFile& file, const KynGroupChunk* group);
    bool writeEndSAMPChunk(KynFile& file);
    // A whole sample in one block, in the place of writeStartSAMPChunk ... writeEndSAMPChunk:
    // `header` and `payload` are a "SAMP" group as it stands in a file, copied from another
    // file. Its "JOBJ" entries must already be the offsets that its "SOBJ" headers take here,
    // behind a header written at the current position. False when the group is full.
    bool writeSAMPChunk(KynFile& file, const KynHeader& header, const void* payload,
                        const float* time);
    bool writeEnd(KynFile& file);
    // `file` stands at the header of the last "SAMS" of a file opened for update. Every header
    // read goes into `header`, which ends as the reserve behind "JSAM" as it was read: a chunk
    // that has served so needs a fresh one before another writeStart.
    bool appendStart(KynFile& file, int64_t newSamples);
    // With `commit` set and a group with a reserve: keeps the sample count and last time of
    // the metadata `meta`, written at `metaOffset` of the same file, in step with the samples
    // committed (see above). `meta` is the metadata as written, whose count and last time are
    // those the file ends with; the count must include the samples of earlier groups. Call it
    // before writeStart or appendStart, which set the count to the samples in front of the
    // group; the last time of those must be in the file already. False, and nothing followed,
    // for metadata without samples.
    bool followMetadata(const KynMETAChunk& meta, int64_t metaOffset);

    std::vector<float> times;
    std::vector<int64_t> sampleJumps;
    std::vector<int64_t> objectJumps;
    int64_t timsOffset = -1;
    int64_t jsamOffset = -1;
    int64_t jobjOffset = -1;
    uint64_t sampleIndex = 0;
    uint64_t objectIndex = 0;
    Commit commit = kCommitAtEnd;  // set before writeStart or appendStart

  private:
    // The metadata followed by a committing writer.
    struct Followed {
        int64_t countOffset = -1;  // of the "NSAM" payload; -1: none followed
        int64_t lastTimeOffset = -1;
        int64_t count = 0;
        float firstTime = 0.0f;
        float lastTime = 0.0f;
        float rate = 0.0f;
    };

    bool commitStart(KynFile& file, bool emptyTables);
    bool commitSample(KynFile& file);
    bool commitEnd(KynFile& file);
    // The samples in the file, the group's committed ones included, as a commit counts them.
    int64_t committedCount() const;

    bool inStep = false;          // committing, and the tables say how many are committed
    int64_t samsPayload = -1;     // first byte of the group's payload
    int64_t timsReserveEnd = -1;  // where the "FREE" behind "TIMS" ends
    int64_t jsamReserveEnd = -1;  // where the "FREE" behind "JSAM" ends
    Followed followed;
};

}  // namespace Kyn

#endif
