#pragma once
// C++ side of the host contract. The slot order of the virtual operations is
// fixed: a host calls them by index. The two "release" operations stand where
// a deleting destructor would, as explicit operations taking the flags
// argument, so no virtual destructor shifts the slots.
#include <vantor/host.h>

#include <cstdint>

namespace Norvell::Processor {

using ProcessorInfo = VantorProcessorInfo;
using RenderContext = VantorRenderContext;
using MidiEvent = VantorMidiEvent;
using ValueChange = VantorValueChange;
using ParamInfo = VantorParamInfo;

class IProcessor {
public:
    virtual ProcessorInfo* GetProcessorInfo() = 0;                             // 0
    virtual bool OptionalQueryA() = 0;                                         // 1
    virtual bool SetSampleRate(const float* rate) = 0;                         // 2
    virtual bool Initialize(uint64_t hostValue) = 0;                           // 3
    virtual bool Terminate() = 0;                                              // 4
    virtual bool SetState(const void* data, uint64_t size) = 0;                // 5
    virtual bool GetState(void* data, uint64_t* size) = 0;                     // 6
    virtual bool GetParam(uint32_t id, float* value) = 0;                      // 7
    virtual bool SetParam(uint32_t id, float value) = 0;                       // 8
    virtual bool OptionalQueryB() { return false; }                            // 9
    virtual bool OptionalQueryC() { return false; }                            // 10
    virtual bool GetParamInfo(uint32_t index, ParamInfo* out) = 0;             // 11
    virtual bool FindParamInfo(uint32_t id, uint32_t* index, ParamInfo* out) { // 12
        const bool found = GetParamInfo(id, out);
        if (found) *index = id;
        return found;
    }
    virtual void* Release(uint32_t flags) = 0; // 13

protected:
    ~IProcessor() = default;
};

class IProcessor_V2 : public IProcessor {
public:
    virtual uint32_t GetInterfaceVersion() = 0;                  // 14
    virtual uint64_t GetParamCount() = 0;                        // 15
    virtual bool OptionalQueryD() = 0;                           // 16
    virtual bool ProcessMidiMessage(const MidiEvent* event) = 0; // 17
    virtual bool OnInitialize() = 0;                             // 18
    virtual bool OnTerminate() = 0;                              // 19
    virtual bool OptionalQueryE() = 0;                           // 20
    virtual bool OptionalHookF() = 0;                            // 21

protected:
    ~IProcessor_V2() = default;
};

class IProcessor_V3 : public IProcessor_V2 {
public:
    virtual bool UpdateVoiceSetup() = 0;                                         // 22
    virtual void GetChangedValues(const ValueChange** list, int32_t* count) = 0; // 23
    virtual bool GetOptionalDataA(uint64_t* pointer, uint32_t* size) = 0;        // 24
    virtual bool GetOptionalDataB(uint64_t* pointer, uint32_t* size) = 0;        // 25
    virtual uint32_t GetBlockSize() = 0;                                         // 26
    virtual bool Render(const RenderContext* ctx) = 0;                           // 27

protected:
    ~IProcessor_V3() = default;
};

class IProcessorFactory {
public:
    virtual uint32_t GetFactoryVersion() = 0;     // 0
    virtual IProcessor_V3* CreateProcessor() = 0; // 1
    virtual void* Release(uint32_t flags) = 0;    // 2

protected:
    ~IProcessorFactory() = default;
};

} // namespace Norvell::Processor
