// Timers for the message-channel framework. The framework runs only on the
// worker, but relative timers expire in the platform's timer context, so an
// expiry is posted to the worker's queue and the framework's callback runs
// there. Start, stop and processing all happen on the worker, so the list of
// live timers needs no lock; it lets a stop with a handle whose timer has
// already been released be ignored instead of writing into a freed block.
#include "channel/channel_mem.hpp"
#include "diag/log.hpp"
#include "fwmclk/channel.h"
#include "fwmclk/diag.h"
#include "fwmclk/platform/orin.h"
#include "fwmclk/platform/securec.h"

namespace {

constexpr uint32_t kOneShot = 0;

// Worker only.
ClkBkfTimer *gLiveTimers = nullptr;

void unlinkTimer(ClkBkfTimer *timer) {
  for (ClkBkfTimer **p = &gLiveTimers; *p != nullptr; p = &(*p)->next) {
    if (*p == timer) {
      *p = timer->next;
      return;
    }
  }
}

bool timerLive(const ClkBkfTimer *timer) {
  for (const ClkBkfTimer *t = gLiveTimers; t != nullptr; t = t->next) {
    if (t == timer) return true;
  }
  return false;
}

void releaseTimer(ClkBkfTimer *timer) {
  unlinkTimer(timer);
  fwmclk::channelFree(timer);
}

}  // namespace

extern "C" {

void *FWM_SRV_BKF_TimerStartOnce(uint32_t, ClkBkfTimerCallback cb, uint32_t length, uintptr_t param) {
  auto *timer = static_cast<ClkBkfTimer *>(fwmclk::channelAlloc(sizeof(ClkBkfTimer)));
  if (timer == nullptr) return nullptr;
  (void)memset_s(timer, sizeof *timer, 0, sizeof *timer);
  timer->callback = cb;
  timer->param = param;
  timer->periodic = 0;
  timer->stopRequested = 0;
  uint32_t ret =
      ORIN_ReltmrCbkStart(&timer->platformTimer, FWM_SRV_BKF_GetMemHdl(), length, 0, reinterpret_cast<uintptr_t>(timer),
                          kOneShot, FWMCLK_EXPORTED(FWM_SRV_BKF_TimerOutProc));
  if (ret != 0) {
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_BKF] BKF_TimerStartLoop failed, Ret=%u", ret);
    fwmclk::channelFree(timer);
    return nullptr;
  }
  timer->next = gLiveTimers;
  gLiveTimers = timer;
  FWMCLK_LOG(FWM_CLK_LOG_DEBUG, "[FWM_SRV_BKF] BKF_TimerStartLoop success.");
  return timer;
}

void *FWM_SRV_BKF_TimerStartLoop(uint32_t, ClkBkfTimerCallback, uint32_t, uintptr_t) { return nullptr; }

void FWM_SRV_BKF_TimerStop(uint32_t fw, void *timer) {
  if (fw == 0 || timer == nullptr) {
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_BKF] BKF_TimerStop failed.");
    return;
  }
  auto *t = static_cast<ClkBkfTimer *>(timer);
  if (!timerLive(t)) return;  // already expired and released
  t->stopRequested = 1;
  FWMCLK_LOG(FWM_CLK_LOG_DEBUG, "[FWM_SRV_BKF] BKF_TimerStop success.");
}

void FWM_SRV_BKF_TimerOutProc(uintptr_t timer, uint32_t timerName) {
  if (timer == 0) return;
  // Only the pointer travels; the record itself is touched on the worker alone.
  ClkBkfTimerQueMsg payload = {1, reinterpret_cast<ClkBkfTimer *>(timer)};
  uint32_t ret = FWM_SRV_BKF_QueProcWrite(CLK_BKF_QUE_MSG_NEGOI_TIMER, &payload, sizeof payload);
  if (ret != 0) {
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_BKF] QueProcWrite failed, ret=%u, timerName=%u.", ret, timerName);
  }
}

uint32_t FWM_SRV_BKF_ProcQueNegoiTimer(void *data, uint32_t) {
  auto *msg = static_cast<ClkBkfTimerQueMsg *>(data);
  ClkBkfTimer *timer = msg->timer;
  if (timer->stopRequested != 0) {
    if (msg->free == 1) {
      releaseTimer(timer);
      msg->timer = nullptr;
    }
    return 0;
  }
  if (timer->callback != nullptr) timer->callback(timer->param);
  if (msg->free == 1) {
    releaseTimer(timer);
    msg->timer = nullptr;
  }
  FWMCLK_LOG(FWM_CLK_LOG_DEBUG, "[FWM_SRV_BKF] ProcQueueNegoiTimer End.");
  return 0;
}

}  // extern "C"

FWMCLK_EXPORT_DEFINED(FWMCLK_EXPORTS_CHANNEL_TIMERS)
