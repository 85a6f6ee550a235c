#include "framework/jok/JokDLL.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/Command.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/GenericData.h"

#include <gtest/gtest.h>

namespace {

int AnswerFortyTwo(CJokCommandContext* context) {
    context->SetReturnValueNoRef(CJokGdDouble::Allocate(42));
    return 1;
}

} // namespace

TEST(JokDLL, HostFindsFunctionsByNameThroughIJokModule) {
    auto* create = new CJokFreeFunctionObj("CreateThing", "&CreateThing", AnswerFortyTwo);
    auto* other = new CJokFreeFunctionObj("CreateOther", "&CreateThing", AnswerFortyTwo);
    create->AddRef(); // keep one for the test
    {
        CJokDLL dll;
        dll.AppendFunction(create); // takes a reference
        dll.AppendFunction(other);
        EXPECT_EQ(create->GetRefCount(), 2);

        IUnknown* unknown = nullptr;
        ASSERT_EQ(dll.ExternalQueryInterface(IID_IUnknown, reinterpret_cast<void**>(&unknown)),
                  S_OK);
        IJokModule* module = nullptr;
        ASSERT_EQ(unknown->QueryInterface(IID_IJokModule, reinterpret_cast<void**>(&module)), S_OK);
        EXPECT_EQ(module->GetFunctionCount(), 2);
        EXPECT_EQ(module->GetFunction(1), other);
        EXPECT_EQ(module->GetFunction(2), nullptr);
        EXPECT_EQ(module->FindFunction("CreateOther"), other);
        EXPECT_EQ(module->FindFunction("creatething"), nullptr);

        CJokCommandContext context;
        ASSERT_EQ(module->FindFunction("CreateThing")->CallMethod(&context), 1);
        EXPECT_EQ(static_cast<CJokGdDouble*>(context.GetReturnValue())->GetValue(), 42);

        module->Release();
        unknown->Release();
        unknown->Release(); // the creator's reference too: a static object outlives it
        EXPECT_EQ(dll.GetFunctionCount(), 2);
    }
    EXPECT_EQ(create->GetRefCount(), 1);
    create->Release();
}

TEST(JokDLL, InterfaceNamesBothWays) {
    const IID id = {0x0DB88D49, 0xCCCA, 0x4F2A, {0x8A, 0xAF, 0x5B, 0x20, 0xCF, 0xAD, 0x7B, 0x24}};
    JokRegisterInterfaceIdName(id, "IProbeScreen");
    CBelString name;
    ASSERT_TRUE(JokGetInterfaceIdName(id, &name));
    EXPECT_EQ(name, "IProbeScreen");
    IID found{};
    ASSERT_TRUE(JokGetInterfaceIdFromName("IProbeScreen", &found));
    EXPECT_TRUE(found == id);
    EXPECT_FALSE(JokGetInterfaceIdFromName("INobody", &found));
    EXPECT_FALSE(JokGetInterfaceIdName(IID_IJokArchiveAttributeSource, &name));
}

TEST(JokDLL, LoadLibraryFailureIsDumped) {
    CBelDiagnosticCapture capture;
    EXPECT_EQ(JokLoadLibrary("/nonexistent/libnothing.so"), nullptr);
    EXPECT_NE(capture.Text(EBelDiagnosticKind::Dump).str().find("JokLoadLibrary -> "),
              std::string::npos);
}
