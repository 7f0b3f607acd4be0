// The library's two log forms. Private to the library.
//   library error:  <source path>:<line> <message>            on the standard output
//   utility error:  <utility> at <source path>:<line> Error <message>   on the standard error
#ifndef KYN_LOG_H
#define KYN_LOG_H

#include <iostream>

#define KYN_LOG_ERROR(message) \
    (std::cout << __FILE__ << ':' << __LINE__ << ' ' << message << std::endl)

#define KYN_UTIL_ERROR(utility, message)                                                   \
    (std::cerr << utility << " at " << __FILE__ << ':' << __LINE__ << " Error " << message \
               << std::endl)

#endif
