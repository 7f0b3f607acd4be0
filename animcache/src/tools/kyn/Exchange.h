// What kyn export and kyn import share: running a converter and telling people its result.
#ifndef KYN_COMMAND_EXCHANGE_H
#define KYN_COMMAND_EXCHANGE_H

#include <functional>
#include <string>

#include "KynExchange.h"

namespace kyncli {

// Runs a conversion, showing its progress on a terminal, then prints the files written on the
// standard output and what was left out on the standard error. Answers the exit status: 1 when
// nothing was written, or when something was left out and `strict` is set; 0 otherwise.
int runExchange(const std::string& command, bool strict,
                const std::function<Kyn::KynExchangeResult(const Kyn::KynProgress&)>& convert);

}  // namespace kyncli

#endif
