#include "Exchange.h"

#include <iostream>

#include "Command.h"

namespace kyncli {

namespace {

// At most this many notes of a kind are printed; a cache of many objects says the rest in a
// count.
const std::size_t kNotesShown = 20;

void printNotes(const std::string& command, const char* lead,
                const std::vector<Kyn::KynExchangeNote>& notes) {
    for (std::size_t i = 0; i < notes.size() && i < kNotesShown; ++i) {
        std::cerr << "kyn " << command << ": " << lead;
        if (!notes[i].object.empty()) std::cerr << notes[i].object << ": ";
        std::cerr << notes[i].text << "\n";
    }
    if (notes.size() > kNotesShown)
        std::cerr << "kyn " << command << ": " << lead << "and " << notes.size() - kNotesShown
                  << " more\n";
}

}  // namespace

int runExchange(const std::string& command, bool strict,
                const std::function<Kyn::KynExchangeResult(const Kyn::KynProgress&)>& convert) {
    Kyn::KynExchangeResult result;
    {
        ProgressLine progress(command == "export" ? "exporting" : "importing");
        result = convert(progress.callback());
    }
    if (!result.ok()) {
        complain(command, "", result.error);
        return 1;
    }
    printNotes(command, "left out ", result.leftOut);
    printNotes(command, "", result.dropped);
    const std::size_t files = result.files.size();
    std::cout << "wrote " << result.files.front();
    if (files > 1) std::cout << " ... " << result.files.back() << " (" << files << " files)";
    std::cout << ": " << result.objects.size()
              << (result.objects.size() == 1 ? " object, " : " objects, ") << result.samples
              << (result.samples == 1 ? " sample\n" : " samples\n");
    return strict && !result.complete() ? 1 : 0;
}

}  // namespace kyncli
