#pragma once
// What a technician can do about an error reply. The instrument's error texts are generic ("General
// failure"); the command and the text together narrow the causes down to the ones Halvern knows.
#include <cstdint>
#include <string>

namespace SEP {

// The hint for command `id` answered with `errorText`; empty when there is nothing better to say than the
// text itself.
std::string hintFor(std::uint16_t id, const std::string& errorText);

}  // namespace SEP
