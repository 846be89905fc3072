#include "capture.hpp"

#include <fmt/format.h>
#include <pcap/pcap.h>

namespace clkcheck {

CaptureReader::~CaptureReader() {
  if (pcap_) pcap_close(pcap_);
}

bool CaptureReader::open(const std::string &path, std::string *error) {
  char why[PCAP_ERRBUF_SIZE] = "";
  pcap_ = pcap_open_offline_with_tstamp_precision(path.c_str(), PCAP_TSTAMP_PRECISION_NANO, why);
  if (!pcap_) {
    *error = fmt::format("{}: not a readable capture: {}", path, why);
    return false;
  }
  if (checkLink(error)) return true;
  *error = path + ": " + *error;
  return false;
}

bool CaptureReader::open(std::FILE *stream, std::string *error) {
  char why[PCAP_ERRBUF_SIZE] = "";
  pcap_ = pcap_fopen_offline_with_tstamp_precision(stream, PCAP_TSTAMP_PRECISION_NANO, why);
  if (!pcap_) {
    std::fclose(stream);
    *error = fmt::format("not a readable capture: {}", why);
    return false;
  }
  return checkLink(error);
}

bool CaptureReader::checkLink(std::string *error) {
  const int link = pcap_datalink(pcap_);
  if (link == DLT_EN10MB) return true;
  const char *name = pcap_datalink_val_to_name(link);
  *error = fmt::format("link layer {} ({}): only Ethernet captures are read", name ? name : "unknown", link);
  return false;
}

bool CaptureReader::next(Packet &p) {
  pcap_pkthdr *h = nullptr;
  const u_char *data = nullptr;
  const int r = pcap_ && error_.empty() ? pcap_next_ex(pcap_, &h, &data) : PCAP_ERROR_BREAK;
  if (r == PCAP_ERROR) error_ = fmt::format("after frame {}: {}", count_, pcap_geterr(pcap_));
  if (r != 1) return false;
  p.number = ++count_;
  p.timeNs = static_cast<int64_t>(h->ts.tv_sec) * 1000000000 + h->ts.tv_usec;
  p.bytes = {data, h->caplen};
  return true;
}

}  // namespace clkcheck
