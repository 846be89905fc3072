// A capture file read one packet at a time through libpcap: pcap and pcapng
// as tcpdump, dumpcap and Wireshark write them, Ethernet link layer, time
// stamps in nanoseconds whatever the file's own precision.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>

struct pcap;

namespace clkcheck {

struct Packet {
  uint64_t number = 0;  // 1 for the first, as Wireshark counts frames
  int64_t timeNs = 0;   // since 1970
  std::span<const uint8_t> bytes;
};

class CaptureReader {
 public:
  CaptureReader() = default;
  ~CaptureReader();
  CaptureReader(const CaptureReader &) = delete;
  CaptureReader &operator=(const CaptureReader &) = delete;

  // False, with the reason, for a file that cannot be read, is not a
  // capture, or holds another link layer than Ethernet.
  bool open(const std::string &path, std::string *error);
  // The same over an open stream, which the reader then owns.
  bool open(std::FILE *stream, std::string *error);
  // The next packet; false at the end or when the file breaks off (then
  // error() says where).
  bool next(Packet &p);
  const std::string &error() const { return error_; }

 private:
  bool checkLink(std::string *error);
  ::pcap *pcap_ = nullptr;
  uint64_t count_ = 0;
  std::string error_;
};

}  // namespace clkcheck
