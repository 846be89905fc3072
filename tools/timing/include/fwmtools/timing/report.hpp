// The TE report: one HTML page that needs nothing but a browser (inline SVG,
// script and style, no fetch), for a person to look at after a run.
#pragma once

#include <ostream>
#include <span>
#include <string>
#include <string_view>

#include "fwmtools/timing/te.hpp"

namespace fwmtools::timing {

struct EngineTe {
  std::string name;
  TeSeries series;
  TeResult result;
};

// At most this many points per engine go into the TE plot: each bucket of
// samples gives its minimum and its maximum, so that no peak is lost.
inline constexpr size_t kReportMaxPoints = 4000;

void writeHtmlReport(std::ostream &out, std::string_view title, std::span<const EngineTe> engines);

}  // namespace fwmtools::timing
