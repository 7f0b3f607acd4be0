// Findings of the library's check and recovery, worded for people and for scripts.
#ifndef KYN_DAMAGE_H
#define KYN_DAMAGE_H

#include <string>
#include <vector>

#include "Command.h"
#include "KynRecovery.h"

namespace kyncli {

// A finding as JSON, with its line for people (Kyn::kynDamageLine). `names` holds the object
// paths, when known.
Json damageJson(const Kyn::KynDamage& damage, const std::vector<std::string>& names);

// Prints up to `limit` lines of findings, indented, and says how many more there are.
void printDamage(const std::vector<Kyn::KynDamage>& damage, const std::vector<std::string>& names,
                 std::size_t limit);

}  // namespace kyncli

#endif
