// Per-unit driver tables and their installation at start-up.
#include "fwmclk/driver.h"
#include "fwmclk/np.h"
#include "fwmclk/platform/devm.h"
#include "fwmclk/service.h"

namespace {

// The chip types whose engines the adapter drives.
constexpr bool adapterDrives(uint32_t chipType) {
  return chipType == 31 || chipType == 33 || chipType == 40 || chipType == 42;
}

}  // namespace

extern "C" {

NpClkDriverFuncs g_fnNpClkDriver[CLK_NP_UNIT_NUM] = {};

// Runs once on the host's thread before the service operations are handed out
// and before any timer exists; the tables are read-only afterwards.
void FWM_SRV_1588_DriverInit(void) {
  // The engine count comes from the platform unchecked; the table has 8 units.
  for (uint32_t unit = 0; unit < g_fwmClkFeNum && unit < CLK_NP_UNIT_NUM; ++unit) {
    if (adapterDrives(FWM_Srv_Get_ChipType())) clk_1588_driver_init(&g_fnNpClkDriver[unit]);
  }
}

}  // extern "C"

FWMCLK_EXPORT_DEFINED(FWMCLK_EXPORTS_NP_DRIVER_TABLE)
