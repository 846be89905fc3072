// Acknowledgements as JSON objects with stable field names (IEEE 1588 names).
#pragma once

#include <nlohmann/json.hpp>

#include "fwmtools/announce.hpp"

namespace fwmtools {

nlohmann::json ackToJson(const Ack &ack);
nlohmann::json announceToJson(const Announce &a);

}  // namespace fwmtools
