// Timestamp, delay and statistics queries, and the null requests of every slot.
#include <cstring>

#include "fwmsim/engine.hpp"
#include "service_fixture.hpp"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Every slot that takes a record refuses a null one before any engine call.
#define N(slot, ...)                                                                                       \
  {                                                                                                        \
#slot, [](auto o) { return o->__VA_ARGS__; }, {}, 1, "", { "ERROR [FWM_SRV] " #slot ", null pointer" } \
  }
// clang-format off
const fwmtest::Step kNullCases[] = {
    N(SetPtpGlbCfg, setPtpGlbCfg(nullptr)), N(SetPtpPortCfg, setPtpPortCfg(0, 1, 0xFFFFFFFFu, nullptr)),
    N(SetPtpPktEncap, setPtpPktEncap(0, 1, 2, nullptr)), N(SetPtpRxCtl, setPtpRxCtl(0, 1, nullptr)),
    N(SetPtpTxCtl, setPtpTxCtl(0, 1, nullptr)), N(SetPtpRxSrcPortId, setPtpRxSrcPortId(0, 1, nullptr)),
    N(SetPtpTxSrcPortId, setPtpTxSrcPortId(0, 1, nullptr)), N(SetPtpPortAsym, setPtpPortAsym(0, 1, nullptr)),
    N(SetPtpPortPkt, setPtpPortPkt(0, 1, nullptr)), N(GetPtpTimestamp, getPtpTimestamp(0, 1, nullptr)),
};
// clang-format on
#undef N

using NullRequest = fwmtest::ServiceTest;

TEST_F(NullRequest, EverySlotRefusesWithItsLineAndNoEngineCall) {
  for (const fwmtest::Step &s : kNullCases) run(s);
}

constexpr uint32_t kUnit = 1;
constexpr uint32_t kPort = 5;

using Query = fwmtest::ServiceTest;

TEST_F(Query, TimestampWordsAreReorderedBehindTheCallersWord) {
  ClkNpTimestamps ts{};
  for (uint32_t i = 0; i < 16; ++i) ts.word[i] = 100 + i;
  fwmsim::engine().setTimestamps(kUnit, kPort, ts);
  ClkPtpTimestamp out{};
  out.words[0] = 0xDEADBEEFu;
  EXPECT_EQ(orch->getPtpTimestamp(kUnit, kPort, &out), 0u);
  EXPECT_THAT(out.words,
              ElementsAre(0xDEADBEEFu, 100, 101, 102, 103, 104, 105, 108, 109, 110, 111, 112, 113, 106, 107, 114, 115));
  EXPECT_THAT(engine(), ElementsAre("oda_1588_get_timestamp(1, 5, &)"));

  mark();
  fwmsim::engine().setScribbleOnFault(true);
  fwmsim::faults().inject("oda_1588_get_timestamp", 1);
  ClkPtpTimestamp untouched = out;
  EXPECT_EQ(orch->getPtpTimestamp(kUnit, kPort, &out), 1u);
  EXPECT_EQ(std::memcmp(&out, &untouched, sizeof out), 0);
  EXPECT_THAT(lines(), ElementsAre("ERROR [FWM_SRV_CLK] GetPtpTimestamp failed, Ret=1"));
}

// The three queries with a read-clear flag: which engine read, which words.
struct ReadClearCase {
  friend void PrintTo(const ReadClearCase &c, std::ostream *os) { *os << c.name; }
  const char *name;
  const char *odaFn;
  size_t engineWords;
  size_t replyWords;
  size_t firstWord;
  void (*seed)(const std::vector<uint32_t> &words);
  // Calls the slot with a reply of replyWords words, or a null reply.
  uint32_t (*call)(const ClkSrvOrchIntf *o, uint32_t readClear, std::vector<uint32_t> *reply);
};

// The slot called with a reply of replyWords words (or none) through its own record type.
// clang-format off
#define Q(Slot, Rec, Reply, setter, engineWords, replyWords, first)                                                     \
  {"Get" #Slot, odaOf##Slot, engineWords, replyWords, first,                                                            \
   [](const std::vector<uint32_t> &w) { Rec r{}; std::memcpy(&r, w.data(), sizeof r); fwmsim::engine().setter(kUnit, kPort, r); }, \
   [](const ClkSrvOrchIntf *o, uint32_t rc, std::vector<uint32_t> *reply) {                                             \
     static_assert(sizeof(Reply) == (replyWords) * 4);                                                                  \
     return o->get##Slot(kUnit, kPort, rc, reply == nullptr ? nullptr : reinterpret_cast<Reply *>(reply->data())); }}
constexpr char odaOfPtpT2SubT1[] = "oda_1588_get_dfx_t2_sub_t1";
constexpr char odaOfPtpT4SubT3[] = "oda_1588_get_dfx_t4_sub_t3";
constexpr char odaOfPtpPktStat[] = "oda_1588_get_pkt_stat";
const ReadClearCase kReadClearCases[] = {
    Q(PtpT2SubT1, ClkNpDfxDelay, ClkPtpDfxDelay, setDfxT2SubT1, 6, 6, 0),
    Q(PtpT4SubT3, ClkNpDfxDelay, ClkPtpDfxDelay, setDfxT4SubT3, 6, 6, 0),
    Q(PtpPktStat, ClkNpPktStat, ClkPtpPktStat, setPktStat, 37, 24, 5),
};
// clang-format on
#undef Q

class ReadClearQuery : public fwmtest::ServiceTest, public ::testing::WithParamInterface<ReadClearCase> {
 protected:
  std::vector<uint32_t> seedEngine() {
    std::vector<uint32_t> words(GetParam().engineWords);
    for (size_t i = 0; i < words.size(); ++i) words[i] = static_cast<uint32_t>(1000 + i);
    GetParam().seed(words);
    return words;
  }
  std::string call(uint32_t readClear) const {
    return std::string(GetParam().odaFn) + "(1, 5, " + std::to_string(readClear) + ", &)";
  }
};

// A plain read copies the wanted words (only 1 is read-clear); read-clear reads
// the engine, which clears, and needs no reply; a null reply is refused only
// after the read; an engine failure leaves the reply untouched.
TEST_P(ReadClearQuery, ReadsClearsRefusesAndFails) {
  const ReadClearCase &c = GetParam();
  const std::string name(c.name);
  for (uint32_t readClear : {0u, 2u}) {
    mark();
    auto words = seedEngine();
    std::vector<uint32_t> reply(c.replyWords, 0x5A5A5A5Au);
    EXPECT_EQ(c.call(orch, readClear, &reply), 0u);
    EXPECT_EQ(reply, std::vector<uint32_t>(words.begin() + static_cast<ptrdiff_t>(c.firstWord),
                                           words.begin() + static_cast<ptrdiff_t>(c.firstWord + c.replyWords)));
    EXPECT_THAT(engine(), ElementsAre(call(readClear)));
    EXPECT_THAT(lines(), IsEmpty());
  }
  mark();
  seedEngine();
  EXPECT_EQ(c.call(orch, 1, nullptr), 0u);
  EXPECT_THAT(engine(), ElementsAre(call(1)));
  EXPECT_THAT(lines(), IsEmpty());
  std::vector<uint32_t> reply(c.replyWords, 0x5A5A5A5Au);
  EXPECT_EQ(c.call(orch, 0, &reply), 0u);
  EXPECT_THAT(reply, ::testing::Each(0u));

  mark();
  EXPECT_EQ(c.call(orch, 0, nullptr), 1u);
  EXPECT_THAT(engine(), ElementsAre(call(0)));
  EXPECT_THAT(lines(), ElementsAre("ERROR [FWM_SRV] " + name + ", null pointer"));

  mark();
  seedEngine();
  fwmsim::engine().setScribbleOnFault(true);
  fwmsim::faults().inject(c.odaFn, 5);  // -5
  reply.assign(c.replyWords, 0x5A5A5A5Au);
  EXPECT_EQ(c.call(orch, 0, &reply), 0xFFFFFFFBu);
  EXPECT_THAT(reply, ::testing::Each(0x5A5A5A5Au));
  EXPECT_THAT(lines(), ElementsAre("ERROR [FWM_SRV_CLK] " + name + " failed, Ret=4294967291"));
}

INSTANTIATE_TEST_SUITE_P(Slots11To13, ReadClearQuery, ::testing::ValuesIn(kReadClearCases),
                         [](const auto &param) { return std::string(param.param.name); });

}  // namespace
