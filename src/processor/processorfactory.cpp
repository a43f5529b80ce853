#include "processor/processorfactory.h"

#include "processor/vantorprocessor.h"

#include <cstdio>

namespace Norvell::Processor {

VantorProcessorFactory::VantorProcessorFactory() {
    std::snprintf(version, sizeof version, "%s", "1.0.0");
    std::snprintf(name, sizeof name, "%s", "Vantor");
    std::snprintf(description, sizeof description, "%s", "Vantor engine");
}

uint32_t VantorProcessorFactory::GetFactoryVersion() {
    return VANTOR_FACTORY_VERSION;
}

IProcessor_V3* VantorProcessorFactory::CreateProcessor() {
    return new Vantor::VantorProcessor();
}

void* VantorProcessorFactory::Release(uint32_t flags) {
    this->~VantorProcessorFactory();
    if ((flags & VANTOR_RELEASE_FREE) != 0) ::operator delete(this);
    return this;
}

} // namespace Norvell::Processor
