#include "KynMessages.h"

#include <iostream>

#include "KynLog.h"

namespace Kyn {

namespace {

// The innermost capture of this thread, or null: then lines are printed.
thread_local KynMessageCapture* current = nullptr;

}  // namespace

KynMessageCapture::KynMessageCapture() : outer(current) {
    current = this;
}

KynMessageCapture::~KynMessageCapture() {
    current = outer;
}

void kynLogError(const char* sourceFile, int line, const char* message) {
    if (current != nullptr) {
        current->messages.emplace_back(message);
        return;
    }
    std::cout << sourceFile << ':' << line << ' ' << message << std::endl;
}

}  // namespace Kyn
