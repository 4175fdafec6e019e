// The per-OS half of OnDeviceModel.h: each platform folder defines this function once.
#pragma once

#include <sagely/OnDeviceModel.h>

#include <memory>

namespace sagely::detail {

/// The system's on-device model framework, made once per process.
std::shared_ptr<OnDeviceModel> makeSystemOnDeviceModel();

}  // namespace sagely::detail
