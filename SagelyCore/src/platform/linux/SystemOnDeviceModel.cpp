#include "platform/OnDeviceModelSeam.h"

#include <sagely/CoachLLMError.h>

namespace sagely::detail {
namespace {

// This system has no on-device model: nothing is eligible and no adapter loads.
class UnavailableLanguageModel final : public OnDeviceLanguageModel {
public:
    OnDeviceAvailability availability() const override {
        return OnDeviceAvailability::deviceNotEligible;
    }
    std::unique_ptr<OnDeviceSession> makeSession() override {
        throw CoachLLMError::serverError("This system has no on-device language model.");
    }
};

class NoSystemOnDeviceModel final : public OnDeviceModel {
public:
    std::shared_ptr<OnDeviceLanguageModel> defaultModel() override { return m_model; }
    std::shared_ptr<OnDeviceLanguageModel> contentTaggingModel() override { return m_model; }
    std::shared_ptr<OnDeviceLanguageModel> adapterModel(const std::string&) override {
        throw CoachLLMError::serverError("This system has no on-device adapters.");
    }
    std::shared_ptr<OnDeviceLanguageModel> adapterFileModel(const std::string&) override {
        throw CoachLLMError::serverError("This system has no on-device adapters.");
    }

private:
    std::shared_ptr<OnDeviceLanguageModel> m_model = std::make_shared<UnavailableLanguageModel>();
};

}  // namespace

std::shared_ptr<OnDeviceModel> makeSystemOnDeviceModel() {
    return std::make_shared<NoSystemOnDeviceModel>();
}

}  // namespace sagely::detail
