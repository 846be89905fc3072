// The observers that turn a run's trace into output: the terminal trace, JSON
// lines, a Chrome/Perfetto timeline and a pcap of the acknowledgements.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include "fwmtools/pcap.hpp"
#include "trace.hpp"

namespace clksim {

struct TextOptions {
  bool colour = false;
  bool verbose = false;  // also the log agent's object plumbing
};

// The trace for people: grouped by step, indented by layer.
std::unique_ptr<TraceObserver> makeTextRenderer(std::FILE *out, TextOptions opt);
void printTextSummary(std::FILE *out, const Summary &s, bool colour);

// One JSON object per line; the last line is the summary.
std::unique_ptr<TraceObserver> makeJsonlRenderer(std::FILE *out);
void printJsonlSummary(std::FILE *out, const Summary &s);

// Passes on only the records of the kinds named (kindName), comma-separated;
// nullptr, with the reason, for a name that is no kind.
std::unique_ptr<TraceObserver> onlyKinds(std::unique_ptr<TraceObserver> output, const std::string &kinds,
                                         std::string *error);

// Chrome trace-event JSON, one track per simulated thread; the file is
// created now and written as the run goes. nullptr, with the reason, when it
// cannot be created.
std::unique_ptr<TraceObserver> makeTimelineWriter(std::string path, std::string *error);

// Each acknowledgement's announce as an IEEE 1588 message in a pcap file,
// framed as its port was programmed; acknowledgements that report a loss, or
// whose send failed, are left out (they never were an announce on the wire).
std::unique_ptr<TraceObserver> makePcapWriter(std::string path, std::string *error);

}  // namespace clksim
