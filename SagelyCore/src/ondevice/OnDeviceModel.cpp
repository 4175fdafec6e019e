#include <sagely/OnDeviceModel.h>

#include "platform/OnDeviceModelSeam.h"

namespace sagely {

std::string OnDeviceSession::streamResponse(const std::string& prompt,
                                            const OnDeviceGenerationOptions& options,
                                            const CancellationToken& cancellation,
                                            const OnDeviceSnapshotHandler&) {
    return respond(prompt, options, cancellation);
}

std::unique_ptr<OnDeviceSession> OnDeviceLanguageModel::makeSessionWithTools(
    const std::vector<OnDeviceTool>&, OnDeviceToolCallHandler) {
    return makeSession();
}

std::shared_ptr<OnDeviceModel> OnDeviceModel::system() {
    static const std::shared_ptr<OnDeviceModel> model = detail::makeSystemOnDeviceModel();
    return model;
}

}  // namespace sagely
