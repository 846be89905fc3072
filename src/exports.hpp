// How the library binds to its own exported names. Included ahead of every
// source of the library (src/CMakeLists.txt), never by a host.
//
// Each exported function is defined under a hidden name of its own, and that
// hidden name is what the library's code calls: the call is direct, may be
// inlined, and goes nowhere else whatever the process loads. The exported name
// is an alias of it, made in the defining file by FWMCLK_EXPORT_DEFINED.
//
// An address the library hands out (a slot of a table it fills, a callback, a
// task entry) is taken as FWMCLK_EXPORTED(fn): through the exported symbol, so
// that the dynamic linker resolves it as it does for every other module. A
// host built without position-independent code gives a function it takes the
// address of a canonical address of its own, and the library's copy then
// compares equal to the host's; the hidden name would not.
//
// Adding an exported function: declare it in its public header as usual and
// add it to the list of the file that defines it. A function left out of the
// lists is not exported at all, and nothing outside the library links.
#pragma once

// The public headers mark exported names for hosts; here the lists below do.
#define FWMCLK_API
#include "fwmclk/fwmclk.h"

// The exported functions by the file that defines them, and the exported globals.
// clang-format off
#define FWMCLK_EXPORTS_ANNOUNCE_ANN_SUPERVISION(X) \
  X(FWM_SRV_AnnTimerOutProc) X(FWM_SRV_CLK_PtpAnnTimerDestroy) X(FWM_SRV_CLK_PtpAnnTimerEntry) \
  X(FWM_SRV_Mira_GetAnnSendData) X(FWM_SRV_Mira_GetAnnounceState) X(FWM_SRV_Mira_PtpAnnAlmProc) \
  X(FWM_SRV_Mira_PtpDetectPortAnnChng) X(FWM_SRV_Mira_PtpSendAnnInfo) X(FWM_SRV_Mira_PtpSetAnnPayload) \
  X(FWM_SRV_Mira_PtpSetCommHeader) X(FWM_SRV_Mira_SaveAnnState) X(FWM_SRV_Mira_SendAnnPktToCsp)

#define FWMCLK_EXPORTS_CHANNEL_ACK(X) \
  X(FWM_SRV_BKF_ProcQueSendAckMsg) X(FWM_SRV_BKF_SendAckMsg) X(FWM_SRV_BKF_SendAckMsgProc)

#define FWMCLK_EXPORTS_CHANNEL_HANDLES(X) \
  X(FWM_SRV_BKF_GetMemHdl) X(FWM_SRV_BKF_GetMemPtNo) X(FWM_SRV_BkfFree) X(FWM_SRV_BkfMalloc) \
  X(FWM_SRV_BkfRecordLog) X(FWM_SRV_BkfSysLogPrintf) X(FWM_SRV_CLK_BkfChannelInit) X(FWM_SRV_CLK_BkfCommonInit) \
  X(FWM_SRV_CLK_BkfInit) X(FWM_SRV_CLK_BkfInitComm) X(FWM_SRV_CLK_BkfNftyInit) X(FWM_SRV_CLK_BkfNtfyCliInit) \
  X(FWM_SRV_CLK_BkfNtfyCliUninit) X(FWM_SRV_CLK_BkfSimpoInit) X(FWM_SRV_CLK_BkfSimpoUninit) \
  X(FWM_SRV_CLK_BkfUnInit) X(FWM_SRV_CLK_BkfUninitComm) X(FWM_SRV_CLK_GetBkfHdl)

#define FWMCLK_EXPORTS_CHANNEL_TIMERS(X) \
  X(FWM_SRV_BKF_ProcQueNegoiTimer) X(FWM_SRV_BKF_TimerOutProc) X(FWM_SRV_BKF_TimerStartLoop) \
  X(FWM_SRV_BKF_TimerStartOnce) X(FWM_SRV_BKF_TimerStop)

#define FWMCLK_EXPORTS_CHANNEL_WORKER(X) \
  X(FWM_SRV_BKF_CreateEpollQue) X(FWM_SRV_BKF_QueMsgDispatch) X(FWM_SRV_BKF_QueProcWrite) \
  X(FWM_SRV_BKF_QueueDataProc) X(FWM_SRV_CLK_BkfProcThread) X(FWM_SRV_CLK_BkfTaskMain) \
  X(FWM_SRV_CLK_CreateBkfTask)

#define FWMCLK_EXPORTS_DIAG_AGENT(X) \
  X(FWM_SRV_ORCH_CLK_ImAgentGetSelfBoardIp) X(FWM_SRV_ORCH_CLK_ImAgentInit) \
  X(FWM_SRV_ORCH_CLK_ImAgentInitTaskEntry) X(FWM_SRV_ORCH_CLK_ImAgentSetMasterIp) \
  X(FWM_SRV_ORCH_CLK_ImAgentUnInit) X(FWM_SRV_ORCH_CLK_ImAgentUpdateMasterIp) \
  X(FWM_SRV_ORCH_CLK_ImAgentUpdateMasterIpTaskEntry)

#define FWMCLK_EXPORTS_DIAG_DEBUG_PRINT(X) \
  X(FWM_SRV_CLK_InitDbg) X(FWM_SRV_CLK_PrintDbg)

#define FWMCLK_EXPORTS_DIAG_DIAG_LOG(X) \
  X(FWM_SRV_ORCH_CLK_ImAgentDebugLog) X(FWM_SRV_ORCH_CLK_ImAgentDiagLog) X(FWM_SRV_ORCH_CLK_ImAgentGetSysTime) \
  X(FWM_SRV_ORCH_CLK_ImAgentIsInitOk) X(FWM_SRV_ORCH_CLK_ImAgentLogTrace) X(FWM_SRV_ORCH_CLK_ImAgentMemAlloc) \
  X(FWM_SRV_ORCH_CLK_ImAgentMemFree) X(FWM_SRV_ORCH_CLK_ImAgentUpdateDebugSwitch)

#define FWMCLK_EXPORTS_DRIVER_ADAPTER(X) \
  X(clk_1588_driver_init) X(clk_1588_get_announce_alarm) X(clk_1588_get_announce_field_rx) \
  X(clk_1588_get_announce_field_tx) X(clk_1588_get_dfx_t2_sub_t1) X(clk_1588_get_dfx_t4_sub_t3) \
  X(clk_1588_get_encap_domain_number) X(clk_1588_get_encap_flagfield) X(clk_1588_get_encap_sport_identity_rx) \
  X(clk_1588_get_encap_sport_identity_tx) X(clk_1588_get_encap_type) \
  X(clk_1588_get_error_code_from_oda_error_code) X(clk_1588_get_pkt_stat) X(clk_1588_get_pkt_stat_alarm) \
  X(clk_1588_get_pkt_tx_en) X(clk_1588_get_port_en) X(clk_1588_get_ptp_control) X(clk_1588_get_ptp_state) \
  X(clk_1588_get_ssm_stat) X(clk_1588_get_time_stamp) X(clk_1588_init) X(clk_1588_interval_type_fe_to_oda) \
  X(clk_1588_pkt_type_fe_to_oda) X(clk_1588_pkt_type_oda_to_fe) X(clk_1588_set_announce_alarm) \
  X(clk_1588_set_announce_field_tx) X(clk_1588_set_announce_timeout) X(clk_1588_set_encap_da) \
  X(clk_1588_set_encap_da_sel) X(clk_1588_set_encap_dip) X(clk_1588_set_encap_dip_sel) \
  X(clk_1588_set_encap_domain_number) X(clk_1588_set_encap_dscp) X(clk_1588_set_encap_flagfield) \
  X(clk_1588_set_encap_flagfield_sel) X(clk_1588_set_encap_ipheader) X(clk_1588_set_encap_sa) \
  X(clk_1588_set_encap_sip) X(clk_1588_set_encap_sport_identity_rx) X(clk_1588_set_encap_sport_identity_tx) \
  X(clk_1588_set_encap_type) X(clk_1588_set_encap_udp_sport) X(clk_1588_set_encap_vlan) \
  X(clk_1588_set_pkt_interval) X(clk_1588_set_pkt_rx_en) X(clk_1588_set_pkt_tx_en) X(clk_1588_set_port_en) \
  X(clk_1588_set_ptp_control) X(clk_1588_set_ptp_state) X(clk_1588_set_ssm_rx_enable) \
  X(clk_oda_port_set_control)

#define FWMCLK_EXPORTS_NP_DRIVER_TABLE(X) \
  X(FWM_SRV_1588_DriverInit)

#define FWMCLK_EXPORTS_NP_ENTRIES(X) \
  X(CLK_NP_1588_GetAnnounceAlarm) X(CLK_NP_1588_GetAnnounceFieldRx) X(CLK_NP_1588_GetAnnounceFieldTx) \
  X(CLK_NP_1588_GetDfxT2SubT1) X(CLK_NP_1588_GetDfxT4SubT3) X(CLK_NP_1588_GetEncapDomainNumber) \
  X(CLK_NP_1588_GetEncapFlagField) X(CLK_NP_1588_GetEncapSportIdentityRx) X(CLK_NP_1588_GetEncapSportIdentityTx) \
  X(CLK_NP_1588_GetEncapType) X(CLK_NP_1588_GetPktTxEn) X(CLK_NP_1588_GetPktstat) X(CLK_NP_1588_GetPktstatAlarm) \
  X(CLK_NP_1588_GetPortEn) X(CLK_NP_1588_GetPtpCtrl) X(CLK_NP_1588_GetPtpRtcTs) X(CLK_NP_1588_GetPtpState) \
  X(CLK_NP_1588_GetSsmStat) X(CLK_NP_1588_GetTimestamp) X(CLK_NP_1588_PtpClearTsCnt) \
  X(CLK_NP_1588_PtpGetChannelTs) X(CLK_NP_1588_PtpGetPortTsReportEnable) X(CLK_NP_1588_PtpGetReportTs) \
  X(CLK_NP_1588_PtpGetTsReportPort) X(CLK_NP_1588_PtpGetTspHeaderCnt) X(CLK_NP_1588_PtpSetI2cSlaveAddr) \
  X(CLK_NP_1588_PtpSetMac47bitModeEn) X(CLK_NP_1588_PtpSetMacRxPortDelay) X(CLK_NP_1588_PtpSetMacTxPortDelay) \
  X(CLK_NP_1588_PtpSetPortEnable) X(CLK_NP_1588_PtpSetRtcNsAdjust) X(CLK_NP_1588_PtpSetRtcTime) \
  X(CLK_NP_1588_PtpSetTspDelay) X(CLK_NP_1588_PtpSetTspRefreshEn) X(CLK_NP_1588_SetAnnounceAlarm) \
  X(CLK_NP_1588_SetAnnounceFieldTx) X(CLK_NP_1588_SetAnnounceTimeout) X(CLK_NP_1588_SetEncapDa) \
  X(CLK_NP_1588_SetEncapDaSel) X(CLK_NP_1588_SetEncapDip) X(CLK_NP_1588_SetEncapDipSel) \
  X(CLK_NP_1588_SetEncapDomainNumber) X(CLK_NP_1588_SetEncapDscp) X(CLK_NP_1588_SetEncapFlagField) \
  X(CLK_NP_1588_SetEncapFlagFieldSel) X(CLK_NP_1588_SetEncapIpHeader) X(CLK_NP_1588_SetEncapSa) \
  X(CLK_NP_1588_SetEncapSip) X(CLK_NP_1588_SetEncapSportIdentityRx) X(CLK_NP_1588_SetEncapSportIdentityTx) \
  X(CLK_NP_1588_SetEncapType) X(CLK_NP_1588_SetEncapUdpSport) X(CLK_NP_1588_SetEncapVlan) \
  X(CLK_NP_1588_SetMacAsymDelay) X(CLK_NP_1588_SetPktInterval) X(CLK_NP_1588_SetPktRxEn) \
  X(CLK_NP_1588_SetPktTxEn) X(CLK_NP_1588_SetPortEn) X(CLK_NP_1588_SetPortTsReportEnable) \
  X(CLK_NP_1588_SetPtpCtrl) X(CLK_NP_1588_SetPtpState) X(CLK_NP_1588_SetSsmRxEnable) \
  X(CLK_NP_1588_SetSynceConfig)

#define FWMCLK_EXPORTS_NP_REPORT(X) \
  X(CLK_NP_RetProcess)

#define FWMCLK_EXPORTS_SERVICE_ANN(X) \
  X(CLK_NP_1588_CompAnnPayload) X(CLK_NP_1588_FormatAnnPkt) X(CLK_NP_1588_SetAnnPortPkt) \
  X(FWM_SRV_CLK_SetPtpAnnClr) X(FWM_SRV_CLK_SetPtpPortPkt) X(FWM_SRV_CLK_SetPtpPortPktProc)

#define FWMCLK_EXPORTS_SERVICE_ENCAP(X) \
  X(FWM_SRV_CLK_SetPtpEncapVlan) X(FWM_SRV_CLK_SetPtpPktEncap) X(FWM_SRV_CLK_SetPtpPktEncapData) \
  X(FWM_SRV_CLK_SetPtpRxSrcPortId) X(FWM_SRV_CLK_SetPtpTxSrcPortId)

#define FWMCLK_EXPORTS_SERVICE_MIRA_HOOK(X) \
  X(FWM_SRV_CLK_MIRASpecialProc)

#define FWMCLK_EXPORTS_SERVICE_PKT_CTL(X) \
  X(FWM_SRV_CLK_SetDomainCheck) X(FWM_SRV_CLK_SetPktInterval) X(FWM_SRV_CLK_SetPktRxEn) \
  X(FWM_SRV_CLK_SetPktTxEn) X(FWM_SRV_CLK_SetPtpRxCtl) X(FWM_SRV_CLK_SetPtpTxCtl) \
  X(FWM_SRV_CLK_SetSrcPortIdCheck)

#define FWMCLK_EXPORTS_SERVICE_PORT_CFG(X) \
  X(FWM_SRV_CLK_SetPtpGlbCfg) X(FWM_SRV_CLK_SetPtpPortAsym) X(FWM_SRV_CLK_SetPtpPortCfg) \
  X(FWM_SRV_CLK_SetPtpPortCfg1) X(FWM_SRV_CLK_SetPtpPortCfg2) X(FWM_SRV_CLK_SetSsmPortCfg)

#define FWMCLK_EXPORTS_SERVICE_PORT_LIST(X) \
  X(FWM_SRV_CLK_ClearPortList) X(FWM_SRV_CLK_InitLocal) X(FWM_SRV_CLK_IsExistPtpPortEnable) \
  X(FWM_SRV_CLK_PtpAddPort) X(FWM_SRV_CLK_PtpFindPort) X(FWM_SRV_CLK_SavePtpPortCfg)

#define FWMCLK_EXPORTS_SERVICE_QUERY(X) \
  X(FWM_SRV_CLK_GetPtpPktStat) X(FWM_SRV_CLK_GetPtpT2SubT1) X(FWM_SRV_CLK_GetPtpT4SubT3) \
  X(FWM_SRV_CLK_GetPtpTimestamp)

#define FWMCLK_EXPORTS_SERVICE_STARTUP(X) \
  X(FWM_SRV_CLK_ACLInit) X(FWM_SRV_CLK_Init) X(FWM_SRV_CLK_RegOrchFunc) X(FWM_SRV_CLK_TARN_NpProcCtrlPacket) \
  X(FWM_SRV_InitCLKMemHandle) X(FWM_SRV_InitCLKMemPdtNo) X(FWM_SRV_Init_ClkFeNum) X(FWM_Srv_Clk_Notify)
// clang-format on

#define FWMCLK_EXPORTED_FUNCTIONS(X)         \
  FWMCLK_EXPORTS_ANNOUNCE_ANN_SUPERVISION(X) \
  FWMCLK_EXPORTS_CHANNEL_ACK(X)              \
  FWMCLK_EXPORTS_CHANNEL_HANDLES(X)          \
  FWMCLK_EXPORTS_CHANNEL_TIMERS(X)           \
  FWMCLK_EXPORTS_CHANNEL_WORKER(X)           \
  FWMCLK_EXPORTS_DIAG_AGENT(X)               \
  FWMCLK_EXPORTS_DIAG_DEBUG_PRINT(X)         \
  FWMCLK_EXPORTS_DIAG_DIAG_LOG(X)            \
  FWMCLK_EXPORTS_DRIVER_ADAPTER(X)           \
  FWMCLK_EXPORTS_NP_DRIVER_TABLE(X)          \
  FWMCLK_EXPORTS_NP_ENTRIES(X)               \
  FWMCLK_EXPORTS_NP_REPORT(X)                \
  FWMCLK_EXPORTS_SERVICE_ANN(X)              \
  FWMCLK_EXPORTS_SERVICE_ENCAP(X)            \
  FWMCLK_EXPORTS_SERVICE_MIRA_HOOK(X)        \
  FWMCLK_EXPORTS_SERVICE_PKT_CTL(X)          \
  FWMCLK_EXPORTS_SERVICE_PORT_CFG(X)         \
  FWMCLK_EXPORTS_SERVICE_PORT_LIST(X)        \
  FWMCLK_EXPORTS_SERVICE_QUERY(X)            \
  FWMCLK_EXPORTS_SERVICE_STARTUP(X)

// clang-format off
#define FWMCLK_EXPORTED_DATA(X) \
  X(g_fwmSrvClkHandle) X(g_fwmClkMemPtNo) X(g_fwmClkFeNum) X(g_ClkLocalData) X(g_clkCreateListCnt) \
  X(g_clkAnndetectTmr) X(g_ptpWaitBkfHelloMsgCnt) X(g_fnNpClkDriver) X(g_clkSrvImAgentLogLvlStr) \
  X(g_clkSrvImAgentDiagSwitch) X(g_clkSrvImAgentDebugSwitch) X(g_clkSrvImAgentHandle) X(g_clkSrvImAgentTaskId) \
  X(g_clkSrvImAgentUpdateMasterIpTaskId) X(g_clkFwmSrvDbgId) X(g_clkFwmSrvDbgFunVtbl) X(g_fwmClkBkfHandle) \
  X(g_clkMemHandle) X(g_clkMemPtNo) X(g_clkBkfEpollFd) X(g_FwmSrvBkfThreadId) X(g_ClkBkfQueueProcID) \
  X(g_clkBkfQueMsgDispatchTbl)
// clang-format on

// NOLINTBEGIN(bugprone-macro-parentheses): the arguments are the names declared
// The hidden name every call binds to, and the exported one for addresses.
#define FWMCLK_DIRECT_(fn)                                                                        \
  extern "C" decltype(fn) fn __asm__("fwmclk_direct_" #fn) __attribute__((visibility("hidden"))); \
  extern "C" decltype(fn) fwmclk_exported_##fn __asm__(#fn);
FWMCLK_EXPORTED_FUNCTIONS(FWMCLK_DIRECT_)
#undef FWMCLK_DIRECT_

#define FWMCLK_EXPORT_DATA_(var) extern "C" __attribute__((visibility("default"))) decltype(var) var;
FWMCLK_EXPORTED_DATA(FWMCLK_EXPORT_DATA_)
#undef FWMCLK_EXPORT_DATA_
// NOLINTEND(bugprone-macro-parentheses)

// The function as every module of the process sees it.
#define FWMCLK_EXPORTED(fn) fwmclk_exported_##fn

// Exports the functions of one list under their names; in the file that
// defines them, once, after their definitions.
#if defined(__clang__)
#define FWMCLK_ALIAS_ATTRIBUTES_(fn) alias("fwmclk_direct_" #fn), visibility("default")
#else
#define FWMCLK_ALIAS_ATTRIBUTES_(fn) alias("fwmclk_direct_" #fn), copy(fn), visibility("default")
#endif
#define FWMCLK_EXPORT_(fn) extern "C" decltype(fn) fwmclk_exported_##fn __attribute__((FWMCLK_ALIAS_ATTRIBUTES_(fn)));
#define FWMCLK_EXPORT_DEFINED(list) list(FWMCLK_EXPORT_)
