/* The forwarding-engine 1588 driver adapter installed into slots 0..44 of every
 * unit of a supported chip. It converts the service's packet types, intervals
 * and the engine driver's error codes, calls the engine driver and reports a
 * failure with its own "[1588]" reason. It holds no state: any thread that may
 * call the NP layer may call it. */
#ifndef FWMCLK_DRIVER_H
#define FWMCLK_DRIVER_H

#include "base.h"
#include "np.h"

FWMCLK_EXTERN_C_BEGIN

/* Record handed to the engine's port control (six words). */
typedef struct {
  uint32_t code;        /* 0: 130 in the first call, 254 in the second */
  uint32_t enable;      /* 1 */
  uint32_t zero[3];     /* 2..4 */
  uint32_t destination; /* 5: 0x3C000000 | low 24 bits of the forwarding target */
} ClkOdaPortCtrl;

FWMCLK_STATIC_ASSERT(sizeof(ClkOdaPortCtrl) == 24, "ClkOdaPortCtrl is 24 bytes");
FWMCLK_STATIC_ASSERT(offsetof(ClkOdaPortCtrl, destination) == 20, "ClkOdaPortCtrl.destination at 20");

/* Installation and the conversions. */
FWMCLK_API void clk_1588_driver_init(NpClkDriverFuncs *table);
FWMCLK_API int32_t clk_1588_init(void);
FWMCLK_API int32_t clk_1588_get_error_code_from_oda_error_code(uint32_t odaCode);
FWMCLK_API int32_t clk_1588_pkt_type_fe_to_oda(uint32_t *odaType, uint32_t feType);
FWMCLK_API int32_t clk_1588_pkt_type_oda_to_fe(uint32_t odaType, uint32_t *feType);
FWMCLK_API int32_t clk_1588_interval_type_fe_to_oda(uint32_t *odaInterval, uint32_t feInterval);

/* Slot operations 1..44, in slot order. */
FWMCLK_API int32_t clk_1588_set_ssm_rx_enable(uint32_t unit, uint32_t port, uint32_t enable);
FWMCLK_API int32_t clk_1588_set_ptp_control(uint32_t unit, uint32_t port, uint32_t type, uint32_t value);
FWMCLK_API int32_t clk_1588_get_ptp_control(uint32_t unit, uint32_t type, ClkNpPtpCtrlRec *rec);
FWMCLK_API int32_t clk_1588_set_ptp_state(uint32_t unit, uint32_t port, uint32_t state);
FWMCLK_API int32_t clk_1588_get_ptp_state(uint32_t unit, uint32_t port, uint32_t *state);
FWMCLK_API int32_t clk_1588_set_encap_type(uint32_t unit, uint32_t port, uint32_t board, uint32_t encap);
FWMCLK_API int32_t clk_1588_get_encap_type(uint32_t unit, uint32_t port, uint32_t *encap);
FWMCLK_API int32_t clk_1588_set_encap_da_sel(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t sel);
FWMCLK_API int32_t clk_1588_set_encap_dip_sel(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t sel);
FWMCLK_API int32_t clk_1588_set_encap_flagfield_sel(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t sel);
FWMCLK_API int32_t clk_1588_set_encap_flagfield(uint32_t unit, uint32_t port, uint32_t flagField);
FWMCLK_API int32_t clk_1588_get_encap_flagfield(uint32_t unit, uint32_t port, uint32_t *flagField);
FWMCLK_API int32_t clk_1588_set_encap_domain_number(uint32_t unit, uint32_t port, uint32_t domain);
FWMCLK_API int32_t clk_1588_get_encap_domain_number(uint32_t unit, uint32_t port, uint32_t *domain);
FWMCLK_API int32_t clk_1588_set_encap_sport_identity_tx(uint32_t unit, uint32_t port, const ClkNpPortIdentity *id);
FWMCLK_API int32_t clk_1588_get_encap_sport_identity_tx(uint32_t unit, uint32_t port, ClkNpPortIdentity *id);
FWMCLK_API int32_t clk_1588_set_encap_sport_identity_rx(uint32_t unit, uint32_t port, uint32_t type,
                                                        const ClkNpPortIdentity *id);
FWMCLK_API int32_t clk_1588_get_encap_sport_identity_rx(uint32_t unit, uint32_t port, uint32_t type,
                                                        ClkNpPortIdentity *id);
FWMCLK_API int32_t clk_1588_set_encap_da(uint32_t unit, uint32_t port, uint32_t pktType, const uint8_t *mac);
FWMCLK_API int32_t clk_1588_set_encap_sa(uint32_t unit, uint32_t port, uint32_t pktType, const uint8_t *mac);
FWMCLK_API int32_t clk_1588_set_encap_dip(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t ipv4);
FWMCLK_API int32_t clk_1588_set_encap_sip(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t ipv4);
FWMCLK_API int32_t clk_1588_set_encap_dscp(uint32_t unit, uint32_t port, uint32_t dscp);
FWMCLK_API int32_t clk_1588_set_encap_vlan(uint32_t unit, uint32_t port, uint32_t tag);
FWMCLK_API int32_t clk_1588_set_encap_udp_sport(uint32_t unit, uint32_t port, uint32_t udpSport);
FWMCLK_API int32_t clk_1588_set_encap_ipheader(uint32_t unit, uint32_t port, const void *header);
FWMCLK_API int32_t clk_1588_set_pkt_tx_en(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t enable);
FWMCLK_API int32_t clk_1588_get_pkt_tx_en(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t *enable);
FWMCLK_API int32_t clk_1588_set_pkt_rx_en(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t enable);
FWMCLK_API int32_t clk_1588_set_pkt_interval(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t interval);
FWMCLK_API int32_t clk_1588_get_pkt_stat_alarm(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t flag,
                                               uint32_t *alarm);
FWMCLK_API int32_t clk_1588_get_pkt_stat(uint32_t unit, uint32_t port, uint32_t readClear, ClkNpPktStat *stat);
FWMCLK_API int32_t clk_1588_set_announce_timeout(uint32_t unit, uint32_t port, uint32_t multiple, uint32_t interval);
FWMCLK_API int32_t clk_1588_get_announce_alarm(uint32_t unit, uint32_t port, uint32_t type, uint32_t flag,
                                               uint32_t *alarm);
FWMCLK_API int32_t clk_1588_set_announce_alarm(uint32_t unit, uint32_t port, uint32_t type, uint32_t exist);
FWMCLK_API int32_t clk_1588_set_announce_field_tx(uint32_t unit, uint32_t port, ClkNpAnnFlags *flags,
                                                  ClkNpAnnFields *fields);
FWMCLK_API int32_t clk_1588_get_announce_field_tx(uint32_t unit, uint32_t port, ClkNpAnnFlags *flags,
                                                  ClkNpAnnFields *fields);
FWMCLK_API int32_t clk_1588_get_announce_field_rx(uint32_t unit, uint32_t port, uint32_t readClear,
                                                  ClkNpAnnFlags *flags, ClkNpAnnFields *fields);
FWMCLK_API int32_t clk_1588_set_port_en(uint32_t unit, uint32_t port, uint32_t enable, ClkNpPortEnInfo *info);
FWMCLK_API int32_t clk_1588_get_port_en(uint32_t unit, uint32_t port, uint32_t *enable);
FWMCLK_API int32_t clk_1588_get_time_stamp(uint32_t unit, uint32_t port, ClkNpTimestamps *ts);
FWMCLK_API int32_t clk_1588_get_ssm_stat(uint32_t unit, uint32_t port, uint32_t selector, void *stat);
FWMCLK_API int32_t clk_1588_get_dfx_t2_sub_t1(uint32_t unit, uint32_t port, uint32_t readClear, ClkNpDfxDelay *delay);
FWMCLK_API int32_t clk_1588_get_dfx_t4_sub_t3(uint32_t unit, uint32_t port, uint32_t readClear, ClkNpDfxDelay *delay);

/* Points the port at its forwarding target (none: 0xFFFFFFFF); always 0. */
FWMCLK_API int32_t clk_oda_port_set_control(uint32_t unit, uint32_t port, uint32_t target, uint32_t enable);

FWMCLK_EXTERN_C_END

#endif
