// Announce programming: the record built from a request, the comparison with
// what the engine holds, and the calls made with transmission off and on.
#include <cstring>

#include "service_fixture.hpp"

namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr uint32_t kUnit = 1;
constexpr uint32_t kPort = 5;

ClkPtpAnnPkt annRequest() {
  ClkPtpAnnPkt a{};
  a.flagField = 0x0208;
  a.currentUtcOffset = 37;
  a.grandmasterPriority1 = 128;
  a.grandmasterPriority2 = 129;
  a.clockClass = 248;
  a.clockAccuracy = 0xFE;
  a.offsetScaledLogVariance = 0xFFFF;
  a.grandmasterIdentityHigh = 0x00112233u;
  a.grandmasterIdentityLow = 0x44556677u;
  a.stepsRemoved = 2;
  a.timeSource = 0xA0;
  return a;
}

// The engine record of annRequest(): bytes 0..35, the rest zero.
constexpr uint8_t kAnnFieldsBody[36] = {
    37,   0,    0,    0,     // currentUtcOffset
    0x33, 0x22, 0x11, 0x00,  // grandmasterIdentityHigh
    0x77, 0x66, 0x55, 0x44,  // grandmasterIdentityLow
    248,  0,                 // clockClass, 16 bits
    0xFE, 0,                 // clockAccuracy, 16 bits
    0xFF, 0xFF, 0,    0,     // offsetScaledLogVariance, 32 bits
    128,  0,    0,    0,     // grandmasterPriority1
    129,  0,    0,    0,     // grandmasterPriority2
    2,    0,    0,    0,     // stepsRemoved
    0xA0, 0,    0,    0,     // timeSource
};

TEST(AnnFormat, RequestBecomesTheEngineRecordWithAllElevenFlags) {
  ClkPtpAnnPkt ann = annRequest();
  ClkNpAnnFields fields{};
  ClkNpAnnFlags flags{};
  CLK_NP_1588_FormatAnnPkt(&ann, &flags, &fields);
  uint8_t bytes[sizeof fields];
  std::memcpy(bytes, &fields, sizeof fields);
  EXPECT_EQ(std::memcmp(bytes, kAnnFieldsBody, sizeof kAnnFieldsBody), 0);
  EXPECT_THAT(std::vector<uint8_t>(bytes + sizeof kAnnFieldsBody, bytes + sizeof bytes), Each(0));
  EXPECT_THAT(flags.flag, Each(1u));
}

// Every body field takes part in the comparison; the flag field does not.
struct CompCase {
  const char *field;
  void (*change)(ClkPtpAnnPkt &);
};

const CompCase kCompCases[] = {
    {"currentUtcOffset", [](ClkPtpAnnPkt &a) { a.currentUtcOffset = 36; }},
    {"grandmasterIdentityHigh", [](ClkPtpAnnPkt &a) { a.grandmasterIdentityHigh ^= 1; }},
    {"grandmasterIdentityLow", [](ClkPtpAnnPkt &a) { a.grandmasterIdentityLow ^= 1; }},
    {"clockClass", [](ClkPtpAnnPkt &a) { a.clockClass = 6; }},
    {"clockAccuracy", [](ClkPtpAnnPkt &a) { a.clockAccuracy = 0x21; }},
    {"offsetScaledLogVariance", [](ClkPtpAnnPkt &a) { a.offsetScaledLogVariance = 0x4E5D; }},
    {"grandmasterPriority1", [](ClkPtpAnnPkt &a) { a.grandmasterPriority1 = 1; }},
    {"grandmasterPriority2", [](ClkPtpAnnPkt &a) { a.grandmasterPriority2 = 1; }},
    {"stepsRemoved", [](ClkPtpAnnPkt &a) { a.stepsRemoved = 3; }},
    {"timeSource", [](ClkPtpAnnPkt &a) { a.timeSource = 0x20; }},
};

TEST(AnnCompare, EveryBodyFieldCountsAndNothingElse) {
  ClkPtpAnnPkt ann = annRequest();
  ClkNpAnnFields engine{};
  ClkNpAnnFlags flags{};
  CLK_NP_1588_FormatAnnPkt(&ann, &flags, &engine);
  for (const CompCase &c : kCompCases) {
    ClkPtpAnnPkt changed = annRequest();
    c.change(changed);
    uint32_t word = 0;
    CLK_NP_1588_CompAnnPayload(&changed, &engine, &word);
    EXPECT_EQ(word, 1u) << c.field;
  }
  // Equal bodies leave the caller's word as it was, whatever the flag field
  // or the receive-side bytes say.
  ClkPtpAnnPkt same = annRequest();
  same.flagField = 0;
  engine.domainNumber = 44;
  engine.sourcePortNumber = 7;
  uint32_t word = 5;
  CLK_NP_1588_CompAnnPayload(&same, &engine, &word);
  EXPECT_EQ(word, 5u);
}

}  // namespace
