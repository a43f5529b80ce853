// The library's only exported symbol.
#include "processor/processorfactory.h"

extern "C" __attribute__((visibility("default"))) Norvell::Processor::IProcessorFactory*
GetProcessorFactory() {
    return new Norvell::Processor::VantorProcessorFactory();
}
