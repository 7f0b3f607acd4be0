// KynMessages: the library's error lines, kept for the caller instead of printed.
//
// A few operations print a line when they fail: KynCache::load says why a file did not load,
// on the standard output, with the source location in front. A host that words failures itself
// (a command for people, a binding that raises exceptions, a check of many files) makes a
// KynMessageCapture on the thread that calls them. While it lives, those lines are kept in its
// `messages`, without the source location, and nothing is printed. Captures nest: the one made
// last gets the lines until it goes. A capture belongs to the thread that made it and sees
// nothing of other threads. Lines that other operations write on the standard error (a bad
// attribute index of KynRoMemCache::getAttrData) are not captured.
#ifndef KYN_MESSAGES_H
#define KYN_MESSAGES_H

#include <string>
#include <vector>

namespace Kyn {

class KynMessageCapture {
  public:
    KynMessageCapture();
    ~KynMessageCapture();
    KynMessageCapture(const KynMessageCapture&) = delete;
    KynMessageCapture& operator=(const KynMessageCapture&) = delete;

    // The last line kept, or the empty string.
    std::string last() const { return messages.empty() ? std::string() : messages.back(); }

    std::vector<std::string> messages;  // in the order they came

  private:
    KynMessageCapture* outer;  // the capture this one hides, restored when it goes
};

}  // namespace Kyn

#endif
