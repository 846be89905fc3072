// Bringing the channel up on the worker and down again: the builder block, the
// message-channel framework, the notification channel and client. The handle
// words are read from other threads without a lock, so the client word, which
// says "ready", is published after everything it depends on.
#include "channel/channel_mem.hpp"
#include "diag/log.hpp"
#include "diag/shared_word.hpp"
#include "fwmclk/channel.h"
#include "fwmclk/diag.h"
#include "fwmclk/platform/bkf.h"
#include "fwmclk/platform/negoinfo.h"
#include "fwmclk/platform/posix.h"
#include "fwmclk/platform/securec.h"

namespace {

constexpr char kCompName[] = "fwm_clk";
constexpr char kNtfyChannel[] = "fwm_clk_ntfy";
constexpr char kNtfyClient[] = "fwm_ntfy";
constexpr uint32_t kLoopback = 0x7F000001u;
constexpr uint32_t kNtfyPort = 39011;

}  // namespace

extern "C" {

ClkBkfHandle g_fwmClkBkfHandle = {0, 0, 0, 0};
uint32_t g_clkMemHandle = 0xFFFFFFFFu;
uint8_t g_clkMemPtNo = 0xFF;
int32_t g_clkBkfEpollFd = -1;

uint32_t FWM_SRV_BKF_GetMemHdl(void) { return fwmclk::loadShared(g_clkMemHandle); }

uint8_t FWM_SRV_BKF_GetMemPtNo(void) { return fwmclk::loadShared(g_clkMemPtNo); }

void FWM_SRV_CLK_GetBkfHdl(ClkBkfHandle *out) {
  // The ready word first: once it is seen set, the acquire makes the words
  // published before it visible too.
  out->client = fwmclk::loadShared(g_fwmClkBkfHandle.client);
  out->comm = fwmclk::loadShared(g_fwmClkBkfHandle.comm);
  out->builder = fwmclk::loadShared(g_fwmClkBkfHandle.builder);
  out->channel = fwmclk::loadShared(g_fwmClkBkfHandle.channel);
}

void *FWM_SRV_BkfMalloc(uint32_t, uint32_t size) { return fwmclk::channelAlloc(size); }

void FWM_SRV_BkfFree(uint32_t, void *block) {
  if (block != nullptr) fwmclk::channelFree(block);
}

void FWM_SRV_BkfRecordLog(uint32_t, const char *text) { FWMCLK_LOG(FWM_CLK_LOG_MSG, "[FWM_SRV_BKF] %s", text); }

int32_t FWM_SRV_BkfSysLogPrintf(uint32_t, const char *, ...) { return 0; }

uint32_t FWM_SRV_CLK_BkfSimpoInit(ClkBkfHandle *handle) {
  void *block = malloc(sizeof(ClkBkfSimpoBuilder));
  if (block == nullptr) {
    fwmclk::storeShared(handle->builder, uintptr_t{0});
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_BKF] BkfSimpoInit fail!");
    return 1;
  }
  (void)memset_s(block, sizeof(ClkBkfSimpoBuilder), 0, sizeof(ClkBkfSimpoBuilder));
  fwmclk::storeShared(handle->builder, reinterpret_cast<uintptr_t>(block));
  return 0;
}

int32_t FWM_SRV_CLK_BkfInitComm(ClkBkfInitCommParam *param) {
  if (param == nullptr || param->handleSlot == nullptr || fwmclk::loadShared(*param->handleSlot) != 0) {
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_BKF] BkfInitComm invalid parameter!");
    return 1;
  }
  ClkBkfCommInitRec rec;
  (void)memset_s(&rec, sizeof rec, 0, sizeof rec);
  rec.name = param->name;
  rec.opt04 = 1;
  rec.opt08 = 0;
  rec.handles = &g_fwmClkBkfHandle;
  rec.memAlloc = FWMCLK_EXPORTED(FWM_SRV_BkfMalloc);
  rec.memFree = FWMCLK_EXPORTED(FWM_SRV_BkfFree);
  rec.opt18 = 2048;
  rec.opt1C = 1;
  rec.recordLog = FWMCLK_EXPORTED(FWM_SRV_BkfRecordLog);
  rec.opt24 = 4;
  rec.epollFd = param->epollFd;
  rec.opt2C = 0;
  rec.timerStartOnce = FWMCLK_EXPORTED(FWM_SRV_BKF_TimerStartOnce);
  rec.timerStartLoop = FWMCLK_EXPORTED(FWM_SRV_BKF_TimerStartLoop);
  rec.timerStop = FWMCLK_EXPORTED(FWM_SRV_BKF_TimerStop);
  rec.opt3C = 1;
  rec.opt4C = 64;
  rec.sysLogPrintf = FWMCLK_EXPORTED(FWM_SRV_BkfSysLogPrintf);
  rec.opt64 = 4;
  rec.opt66 = 0;
  rec.sliceKeyCmp = CLOCK_NegoinfoiSliceKeyCmp;
  rec.sliceKeyGetStr = CLOCK_NegoinfoiSliceKeyGetStr;
  rec.sliceKeyCodec = CLOCK_NegoinfoiSliceKeyCodec;
  uintptr_t comm = BKF_CommInit(&rec);
  fwmclk::storeShared(*param->handleSlot, comm);
  // The handle doubles as the framework's verdict: only its low word fits the result.
  return static_cast<int32_t>(static_cast<uint32_t>(comm));
}

uint32_t FWM_SRV_CLK_BkfCommonInit(void) {
  ClkBkfInitCommParam param;
  (void)memset_s(&param, sizeof param, 0, sizeof param);
  param.handleSlot = &g_fwmClkBkfHandle.comm;
  (void)strcpy_s(param.name, sizeof param.name, kCompName);
  param.epollFd = fwmclk::loadShared(g_clkBkfEpollFd);
  (void)FWM_SRV_CLK_BkfInitComm(&param);
  if (fwmclk::loadShared(g_fwmClkBkfHandle.comm) == 0) {
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_BKF] BkfInitComm fail!");
    return 1;
  }
  return 0;
}

uintptr_t FWM_SRV_CLK_BkfChannelInit(uintptr_t comm, const char *name, uint32_t option1, uint32_t option2) {
  ClkBkfChInitRec rec;
  (void)memset_s(&rec, sizeof rec, 0, sizeof rec);
  rec.name = name;
  rec.opt04 = 1;
  rec.option1 = option1;
  rec.option2 = option2;
  return BKF_MeshCliChInit(comm, &rec);
}

uintptr_t FWM_SRV_CLK_BkfNtfyCliInit(void) {
  ClkBkfHandle &h = g_fwmClkBkfHandle;
  const uintptr_t comm = fwmclk::loadShared(h.comm);
  const uintptr_t channel = fwmclk::loadShared(h.channel);
  if (fwmclk::loadShared(h.client) != 0 || comm == 0 || channel == 0) {
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_BKF] BkfInitComm invalid parameter!");
    return 0;
  }
  ClkNtfyCliInitRec rec;
  (void)memset_s(&rec, sizeof rec, 0, sizeof rec);
  rec.name = kNtfyClient;
  rec.opt04 = 0;
  rec.opt08 = 1;
  rec.channel = channel;
  rec.comm = comm;
  uint32_t ret = BKF_UrlMeshSet(rec.url, kLoopback, kNtfyPort, kNtfyClient);
  if (ret != 0) {
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_BKF] BKF_UrlMeshSet ret=%u", ret);
    return 0;
  }
  uintptr_t client = CLOCK_NegoinfoiNtfyCliInit(&rec);
  // Release: a reader that sees the client also sees words 0 to 2.
  fwmclk::storeShared(h.client, client);
  return client;
}

uint32_t FWM_SRV_CLK_BkfNftyInit(void) {
  ClkBkfHandle &h = g_fwmClkBkfHandle;
  fwmclk::storeShared(h.channel, FWM_SRV_CLK_BkfChannelInit(fwmclk::loadShared(h.comm), kNtfyChannel, 0, 0));
  if (fwmclk::loadShared(h.channel) == 0) {
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_BKF] BkfNftyInit null pointer");
    return 1;
  }
  (void)FWM_SRV_CLK_BkfNtfyCliInit();
  (void)CLOCK_NegoinfoiNtfyCliConnect(fwmclk::loadShared(h.client));
  return 0;
}

void FWM_SRV_CLK_BkfInit(void) {
  if (FWM_SRV_CLK_BkfSimpoInit(&g_fwmClkBkfHandle) != 0) {
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_BKF] BkfSimpoInit fail!");
    return;
  }
  if (FWM_SRV_CLK_BkfCommonInit() != 0) {
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_BKF] BkfCommonInit fail!");
    return;
  }
  if (FWM_SRV_CLK_BkfNftyInit() != 0) {
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_BKF] BkfNftyInit fail!");
    return;
  }
  FWMCLK_LOG(FWM_CLK_LOG_MSG, "[FWM_SRV_BKF] BkfInit success.");
}

uint32_t FWM_SRV_CLK_BkfNtfyCliUninit(void) {
  return CLOCK_NegoinfoiNtfyCliUninit(fwmclk::loadShared(g_fwmClkBkfHandle.client));
}

uint32_t FWM_SRV_CLK_BkfUninitComm(uintptr_t *slot) {
  uint32_t ret = BKF_CommUninit(fwmclk::loadShared(*slot));
  fwmclk::storeShared(*slot, uintptr_t{0});
  return ret;
}

void FWM_SRV_CLK_BkfSimpoUninit(ClkBkfHandle *handle) {
  void *block = reinterpret_cast<void *>(fwmclk::loadShared(handle->builder));
  if (block != nullptr) free(block);
  fwmclk::storeShared(handle->builder, uintptr_t{0});
}

void FWM_SRV_CLK_BkfUnInit(void) {
  (void)FWM_SRV_CLK_BkfNtfyCliUninit();
  (void)FWM_SRV_CLK_BkfUninitComm(&g_fwmClkBkfHandle.comm);
  FWM_SRV_CLK_BkfSimpoUninit(&g_fwmClkBkfHandle);
}

}  // extern "C"

FWMCLK_EXPORT_DEFINED(FWMCLK_EXPORTS_CHANNEL_HANDLES)
