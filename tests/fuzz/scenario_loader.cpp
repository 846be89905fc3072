// clksim's scenario loader: any text is a scenario or a refusal with a
// place; nothing escapes as an exception or a crash.
#include <string_view>

#include "loader.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::string_view text(reinterpret_cast<const char *>(data), size);
  (void)clksim::loadScenario(text, "fuzz.yaml");
  return 0;
}
