// The worker task "CLK_FWM_BKF": its epoll instance, the event queue
// "CLK_Q_BKF" through which every other thread hands it work, and the
// dispatch of queued messages by type. The queue is the only hand-over: a
// poster copies its payload into channel blocks, and from a successful post on
// the worker owns and releases them.
#include "channel/channel_mem.hpp"
#include "diag/log.hpp"
#include "diag/shared_word.hpp"
#include "fwmclk/channel.h"
#include "fwmclk/diag.h"
#include "fwmclk/platform/fwm_que.h"
#include "fwmclk/platform/mesh.h"
#include "fwmclk/platform/posix.h"
#include "fwmclk/platform/quay.h"
#include "fwmclk/platform/securec.h"

namespace {

constexpr char kTaskName[] = "CLK_FWM_BKF";
constexpr char kQueueName[] = "CLK_Q_BKF";
constexpr uint32_t kQueueMode = 6;
constexpr uint32_t kQueueDepth = 2048;
constexpr uint32_t kQueueEntrySize = 4;
constexpr int32_t kWaitForever = -1;
constexpr uint32_t kDeadloopLimits[4] = {200, 250, 300, 400};
constexpr uint32_t kOpersStart = 0;
constexpr uint32_t kOpersEnd = 1;

// The event layer fills its own record type; the loop reads it as ours.
static_assert(sizeof(ClkBkfEpollEvent) == sizeof(MESH_EPOLL_EVENT));
static_assert(offsetof(ClkBkfEpollEvent, handler) == offsetof(MESH_EPOLL_EVENT, handler));
static_assert(offsetof(ClkBkfEpollEvent, data) == offsetof(MESH_EPOLL_EVENT, data));
static_assert(offsetof(ClkBkfEpollEvent, context) == offsetof(MESH_EPOLL_EVENT, context));

}  // namespace

extern "C" {

uint32_t g_FwmSrvBkfThreadId = 0;
uint32_t g_ClkBkfQueueProcID = 0;
ClkBkfQueMsgDispatch g_clkBkfQueMsgDispatchTbl[CLK_BKF_QUE_MSG_END + 1] = {
    {CLK_BKF_QUE_MSG_NEGOI_TIMER, FWMCLK_EXPORTED(FWM_SRV_BKF_ProcQueNegoiTimer)},
    {CLK_BKF_QUE_MSG_SEND_ACK, FWMCLK_EXPORTED(FWM_SRV_BKF_ProcQueSendAckMsg)},
    {CLK_BKF_QUE_MSG_END, nullptr},
};

void FWM_SRV_CLK_CreateBkfTask(void) {
  if (fwmclk::loadShared(g_FwmSrvBkfThreadId) != 0) return;
  uint32_t ret = FwmEpollTaskCreate(kTaskName, &g_FwmSrvBkfThreadId, FWMCLK_EXPORTED(FWM_SRV_CLK_BkfProcThread), 0);
  if (ret != 0) {
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_BKF] CreateBkfTask fail, ret=%u", ret);
    return;
  }
  FWMCLK_LOG(FWM_CLK_LOG_MSG, "[FWM_SRV_BKF] CreateBkfTask success.");
}

uint32_t FWM_SRV_BKF_CreateEpollQue(int32_t epollFd) {
  uint32_t queue = FWM_QUE_CreateNew(kQueueName, kQueueMode, kQueueDepth, kQueueEntrySize);
  fwmclk::storeShared(g_ClkBkfQueueProcID, queue);
  if (queue == 0) {
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_BKF] Create epoll que failed!");
    return 1;
  }
  uint32_t ret = FWM_QUE_EpollReg(queue, epollFd, FWMCLK_EXPORTED(FWM_SRV_BKF_QueueDataProc));
  if (ret != 0) {
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_BKF] Create epoll reg failed!, ret=%u", ret);
    (void)FWM_QUE_Destory(queue);
    return ret;
  }
  return 0;
}

uint32_t FWM_SRV_CLK_BkfProcThread(void) {
  int32_t fd = MESH_EpollCreate();
  fwmclk::storeShared(g_clkBkfEpollFd, fd);
  if (fd == -1) {
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_BKF] Create clk epoll failed!");
    return 1;
  }
  uint32_t ret = FWM_SRV_BKF_CreateEpollQue(fd);
  if (ret != 0) {
    (void)MESH_Close(fd);
    fwmclk::storeShared(g_clkBkfEpollFd, int32_t{-1});
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_BKF] CreateEpollQue failed, ret=%u", ret);
    return ret;
  }
  FWMCLK_LOG(FWM_CLK_LOG_MSG, "[FWM_SRV_BKF] CreateEpollQue success.");
  FWM_SRV_CLK_BkfInit();
  FWM_SRV_CLK_BkfTaskMain();
}

void FWM_SRV_CLK_BkfTaskMain(void) {
  uint32_t ret = QUAY_InitDeadloopMonitor();
  if (ret != 0) {
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_CLK] Init Deadloop monitor failed ret=%u", ret);
  }
  const auto tid = static_cast<uint32_t>(syscall(SYS_gettid));
  ret = regDeadloopMon(tid, kDeadloopLimits[0], kDeadloopLimits[1], kDeadloopLimits[2], kDeadloopLimits[3]);
  if (ret != 0) {
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_CLK] Register Deadloop monitor failed, ret=%u", ret);
  }
  ClkBkfEpollEvent events[CLK_BKF_EPOLL_EVENT_NUM];
  for (;;) {
    (void)memset_s(events, sizeof events, 0, sizeof events);
    int32_t n = MESH_EpollWait(fwmclk::loadShared(g_clkBkfEpollFd), reinterpret_cast<MESH_EPOLL_EVENT *>(events),
                               CLK_BKF_EPOLL_EVENT_NUM, kWaitForever);
    // Never trust the event layer beyond the records we gave it room for.
    const int32_t count = n > CLK_BKF_EPOLL_EVENT_NUM ? CLK_BKF_EPOLL_EVENT_NUM : n;
    for (int32_t i = 0; i < count; ++i) {
      const ClkBkfEpollEvent &ev = events[i];
      if (ev.handler != nullptr) (void)ev.handler(ev.context, ev.events, ev.data);
    }
  }
}

uint32_t FWM_SRV_BKF_QueMsgDispatch(uint32_t type, void *data, uint32_t length) {
  if (type > CLK_BKF_QUE_MSG_SEND_ACK) return 1;
  ClkBkfQueMsgProc proc = g_clkBkfQueMsgDispatchTbl[type].proc;
  if (proc == nullptr) return 1;
  uint32_t ret = proc(data, length);
  if (ret != 0) FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_BKF] msg proc fail, ret=%u.", ret);
  return ret;
}

uint32_t FWM_SRV_BKF_QueueDataProc(uintptr_t queue, uint32_t, uint32_t) {
  uintptr_t entry = 0;
  int32_t n = FWM_QUE_AsyRead(static_cast<uint32_t>(queue), &entry, 1);
  if (n <= 0) {
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_BKF] Read epoll que failed, readCnt=%u.", static_cast<uint32_t>(n));
    return 1;
  }
  auto *msg = reinterpret_cast<ClkBkfQueMsg *>(entry);
  dm_opers(kOpersStart);
  uint32_t ret = FWM_SRV_BKF_QueMsgDispatch(msg->type, msg->data, msg->length);
  dm_opers(kOpersEnd);
  if (msg->data != nullptr) fwmclk::channelFree(msg->data);
  fwmclk::channelFree(msg);
  return ret;
}

uint32_t FWM_SRV_BKF_QueProcWrite(uint32_t type, const void *data, uint32_t length) {
  if (data == nullptr || length == 0) return 1;
  void *copy = fwmclk::channelAlloc(length);
  if (copy == nullptr) return 1;
  auto *msg = static_cast<ClkBkfQueMsg *>(fwmclk::channelAlloc(sizeof(ClkBkfQueMsg)));
  if (msg == nullptr) {
    fwmclk::channelFree(copy);
    return 1;
  }
  msg->type = type;
  msg->length = length;
  msg->data = copy;
  (void)memcpy_s(copy, length, data, length);
  uintptr_t entry = reinterpret_cast<uintptr_t>(msg);
  uint32_t written = FWM_QUE_AsyWrite(fwmclk::loadShared(g_ClkBkfQueueProcID), &entry, 1);
  if (written == 1) return 0;
  FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_BKF] QueProcWrite fail, msgtype=%u, writeCnt=%u.", type, written);
  fwmclk::channelFree(copy);
  fwmclk::channelFree(msg);
  return 1;
}

}  // extern "C"

FWMCLK_EXPORT_DEFINED(FWMCLK_EXPORTS_CHANNEL_WORKER)
