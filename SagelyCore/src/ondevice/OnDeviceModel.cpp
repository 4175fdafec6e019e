#include <sagely/OnDeviceModel.h>

#include "platform/OnDeviceModelSeam.h"

namespace sagely {

std::shared_ptr<OnDeviceModel> OnDeviceModel::system() {
    static const std::shared_ptr<OnDeviceModel> model = detail::makeSystemOnDeviceModel();
    return model;
}

}  // namespace sagely
