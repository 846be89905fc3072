// Between the event layer and the facilities that register sources on it.
#pragma once

#include <cstdint>

#include "fwmclk/platform/mesh.h"

namespace fwmsim::detail {

// Reports readiness of `srcFd` on the instance `epfd` as a record carrying
// `handler` and `context`. False when there is no such instance.
bool meshAddSource(int32_t epfd, int srcFd, MESH_EPOLL_HANDLER handler, uintptr_t context);
void meshRemoveSource(int32_t epfd, int srcFd);

// A hand-off counted busy by its producer has been taken by the calling
// thread. In an event loop it counts as handled once the thread waits again;
// elsewhere at once.
void handOffTaken();

}  // namespace fwmsim::detail
