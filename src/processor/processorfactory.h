#pragma once
// The factory object handed out by GetProcessorFactory.
#include "processor/hostinterface.h"

namespace Norvell::Processor {

class VantorProcessorFactory final : public IProcessorFactory {
public:
    VantorProcessorFactory();
    uint32_t GetFactoryVersion() override;
    IProcessor_V3* CreateProcessor() override;
    void* Release(uint32_t flags) override;

    // Read by hosts directly after the table pointer.
    char version[VANTOR_TEXT_FIELD];
    char name[VANTOR_TEXT_FIELD];
    char description[VANTOR_TEXT_FIELD];

private:
    ~VantorProcessorFactory() = default;
};

} // namespace Norvell::Processor
