// Construction from broken or unusual engine descriptions, and SetParam's
// answer for values that are not 4 bytes wide.
#include "processor/modules.h"
#include "processor/vantorprocessor.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>

using Engine = Norvell::Vantor::VantorProcessor;

namespace {

struct DescriptionCase {
    const char* name;
    const char* params; // the params node, or raw text when it is not a description
    uint32_t paramCount;
    const char* loggedLine; // expected once in the log
    bool auditLines;        // the three "Audio Engine : " lines
};

std::string Description(const char* params) {
    if (params[0] != '<') return params;
    return std::string("<?xml version=\"1.0\"?>\n<rootnode version=\"1.0.0\">\n<constants/>\n") +
           params + "\n</rootnode>\n";
}

} // namespace

TEST(ProcessorConstruction, BrokenDescriptionsFailTheInitialisationAndStaySilent) {
    const DescriptionCase cases[] = {
        {"not a description", "no xml here", 0, "could not load xml of parameters", false},
        {"empty parameter list", "<params>\n</params>", 0, "ENGINE INIT FAILED", false},
        // The failed binding comes first; the parameters after it are still bound.
        {"failed binding",
         "<params>\n<param name=\"a\" module=\"vantor_bogus-0\" module_param=\"x\"/>\n"
         "<param name=\"wide\" datasize=\"8\"/>\n"
         "<param name=\"f\" module=\"vantor_osc-23\" module_param=\"freq\"/>\n</params>",
         3, "Failed to set param vantor_bogus-0 - x", true},
    };
    for (const DescriptionCase& c : cases) {
        SCOPED_TRACE(c.name);
        VantorTest::ScopedLogCapture capture;
        std::ofstream(capture.Folder() + "/vantorengine.xml") << Description(c.params);
        {
            Engine* p = new Engine();
            p->Initialize(0);
            EXPECT_TRUE(p->InitFailed());
            EXPECT_EQ(p->GetParamCount(), c.paramCount);
            float rate = 44100.0f, left[32] = {}, right[32] = {};
            p->SetSampleRate(&rate);
            p->UpdateVoiceSetup();
            float* out[2] = {left, right};
            VantorRenderContext ctx{};
            ctx.outputs = out;
            ctx.frameCount = 32;
            ctx.sampleRate = rate;
            ctx.tempo = 120.0f;
            p->Render(&ctx);
            if (c.paramCount == 0) {
                for (int i = 0; i < 32; ++i) EXPECT_EQ(left[i] + right[i], 0.0f);
            } else {
                const auto& osc = p->ModuleRegistry().oscillators[23].params;
                EXPECT_NE(osc.bound[0], nullptr);
                EXPECT_EQ(osc.ids[0], 2u);
                EXPECT_FALSE(p->SetParam(1, 0.5f)); // 8 bytes wide: not written
                float wide = -1.0f;
                EXPECT_TRUE(p->GetParam(1, &wide));
                EXPECT_EQ(wide, 0.0f);
                EXPECT_TRUE(p->SetParam(2, 0.25f));
                EXPECT_EQ(*osc.bound[0], 0.25f);
                EXPECT_FALSE(p->SetParam(3, 0.25f));
            }
            p->Release(VANTOR_RELEASE_FREE);
        }
        const std::string log = capture.Text();
        EXPECT_NE(log.find(c.loggedLine), std::string::npos);
        EXPECT_NE(log.find("ENGINE INIT FAILED"), std::string::npos);
        EXPECT_EQ(log.find("ENGINE INIT OK"), std::string::npos);
        EXPECT_EQ(log.find("Audio Engine : ") != std::string::npos, c.auditLines);
    }
}
