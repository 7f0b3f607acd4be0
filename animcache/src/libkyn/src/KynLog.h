// The library's two log forms. Private to the library.
//   library error:  <source path>:<line> <message>            on the standard output
//   utility error:  <utility> at <source path>:<line> Error <message>   on the standard error
#ifndef KYN_LOG_H
#define KYN_LOG_H

#include <iostream>

namespace Kyn {
// Prints a library error line, or keeps it in the thread's KynMessageCapture (KynMessages.h).
void kynLogError(const char* sourceFile, int line, const char* message);
}  // namespace Kyn

#define KYN_LOG_ERROR(message) ::Kyn::kynLogError(__FILE__, __LINE__, message)

#define KYN_UTIL_ERROR(utility, message)                                                   \
    (std::cerr << utility << " at " << __FILE__ << ':' << __LINE__ << " Error " << message \
               << std::endl)

#endif
