/* The forwarding engine's 1588 driver. Every function returns an engine-driver
 * error code: 0 = success, 1..16 defined by the driver, anything else a failure
 * without a defined meaning. */
#ifndef FWMCLK_PLATFORM_ODA_H
#define FWMCLK_PLATFORM_ODA_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

uint32_t oda_1588_set_ssm_rx_en(uint32_t unit, uint32_t port, uint32_t enable);
uint32_t oda_1588_set_ptp_control(uint32_t unit, uint32_t port, uint32_t type, uint32_t value, uint32_t reserved);
uint32_t oda_1588_get_ptp_control(uint32_t unit, uint32_t type, uint32_t *rec3);
uint32_t oda_1588_set_ptp_state(uint32_t unit, uint32_t port, uint32_t state);
uint32_t oda_1588_get_ptp_state(uint32_t unit, uint32_t port, uint32_t *state);
uint32_t oda_1588_set_encap_type(uint32_t unit, uint32_t port, uint32_t encap);
uint32_t oda_1588_get_encap_type(uint32_t unit, uint32_t port, uint32_t *encap);
uint32_t oda_1588_set_encap_da_sel(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t sel);
uint32_t oda_1588_set_encap_dip_sel(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t sel);
uint32_t oda_1588_set_encap_flagfield_sel(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t sel);
uint32_t oda_1588_set_encap_flagfield(uint32_t unit, uint32_t port, uint32_t flagField);
uint32_t oda_1588_get_encap_flagfield(uint32_t unit, uint32_t port, uint32_t *flagField);
uint32_t oda_1588_set_encap_domain_number(uint32_t unit, uint32_t port, uint32_t domain);
uint32_t oda_1588_get_encap_domain_number(uint32_t unit, uint32_t port, uint32_t *domain);
uint32_t oda_1588_set_encap_sport_identity_tx(uint32_t unit, uint32_t port, const uint32_t *identity3);
uint32_t oda_1588_get_encap_sport_identity_tx(uint32_t unit, uint32_t port, uint32_t *identity3);
uint32_t oda_1588_set_encap_sport_identity_rx(uint32_t unit, uint32_t port, uint32_t type, const uint32_t *identity3);
uint32_t oda_1588_get_encap_sport_identity_rx(uint32_t unit, uint32_t port, uint32_t type, uint32_t *identity3);
uint32_t oda_1588_set_encap_da(uint32_t unit, uint32_t port, uint32_t pktType, const uint8_t *mac6);
uint32_t oda_1588_set_encap_sa(uint32_t unit, uint32_t port, uint32_t pktType, const uint8_t *mac6);
uint32_t oda_1588_set_encap_dip(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t ipv4);
uint32_t oda_1588_set_encap_sip(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t ipv4);
uint32_t oda_1588_set_encap_dscp(uint32_t unit, uint32_t port, uint32_t dscp);
uint32_t oda_1588_set_encap_vlan(uint32_t unit, uint32_t port, uint32_t tag);
uint32_t oda_1588_set_encap_udp_sport(uint32_t unit, uint32_t port, uint32_t udpSport);
uint32_t oda_1588_set_encap_ipheader(uint32_t unit, uint32_t port, const void *header);
uint32_t oda_1588_set_pkt_tx_en(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t enable);
uint32_t oda_1588_get_pkt_tx_en(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t *enable);
uint32_t oda_1588_set_pkt_rx_en(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t enable);
uint32_t oda_1588_set_pkt_interval(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t interval);
uint32_t oda_1588_get_pkt_stat_alarm(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t flag, uint32_t *alarm);
uint32_t oda_1588_get_pkt_stat(uint32_t unit, uint32_t port, uint32_t readClear, void *stat148);
uint32_t oda_1588_set_announce_timeout(uint32_t unit, uint32_t port, uint32_t multiple, uint32_t interval);
uint32_t oda_1588_get_announce_alarm(uint32_t unit, uint32_t port, uint32_t type, uint32_t flag, uint32_t *alarm);
uint32_t oda_1588_set_announce_alarm(uint32_t unit, uint32_t port, uint32_t type, uint32_t exist);
uint32_t oda_1588_set_announce_field_tx(uint32_t unit, uint32_t port, void *flags11, void *fields88);
uint32_t oda_1588_get_announce_field_tx(uint32_t unit, uint32_t port, void *flags11, void *fields88);
uint32_t oda_1588_get_announce_field_rx(uint32_t unit, uint32_t port, uint32_t readClear, void *flags11,
                                        void *fields88);
uint32_t oda_1588_set_port_en(uint32_t unit, uint32_t port, uint32_t enable);
uint32_t oda_1588_get_port_en(uint32_t unit, uint32_t port, uint32_t *enable);
uint32_t oda_1588_get_timestamp(uint32_t unit, uint32_t port, void *ts64);
uint32_t oda_1588_get_ssm_stat(uint32_t unit, uint32_t port, uint32_t selector, void *stat);
uint32_t oda_1588_get_dfx_t2_sub_t1(uint32_t unit, uint32_t port, uint32_t readClear, void *delay24);
uint32_t oda_1588_get_dfx_t4_sub_t3(uint32_t unit, uint32_t port, uint32_t readClear, void *delay24);
uint32_t oda_port_set_control(uint32_t unit, uint32_t portWord, void *ctrl6);

#ifdef __cplusplus
}
#endif
#endif
