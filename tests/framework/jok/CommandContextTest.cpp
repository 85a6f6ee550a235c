#include "framework/jok/CommandContext.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/Command.h"
#include "framework/jok/GenericData.h"

#include <gtest/gtest.h>

#include <functional>
#include <new>

namespace {

// Adds one parameter "p" of a given kind.
using ParamMaker = std::function<void(CJokCommandContext&)>;
const ParamMaker kNone = [](CJokCommandContext&) {};
const ParamMaker kNumber = [](CJokCommandContext& c) { c.AddParam("p", 2.75); };
const ParamMaker kString = [](CJokCommandContext& c) { c.AddParam("p", "video"); };
const ParamMaker kBoolean = [](CJokCommandContext& c) { c.AddBooleanParam("p", 1); };
const ParamMaker kNull = [](CJokCommandContext& c) {
    c.AddParamNoRef("p", CJokGdNull::Allocate());
};
const ParamMaker kNoneValue = [](CJokCommandContext& c) {
    c.AddParamNoRef("p", CJokGdNone::Allocate());
};
const ParamMaker kHuge = [](CJokCommandContext& c) { c.AddParam("p", 1e12); };
const ParamMaker kCallback = [](CJokCommandContext& c) {
    auto* callback = new CJokSimpleCommandObject;
    c.AddParam("p", static_cast<IUnknown*>(callback));
    callback->Release();
};

} // namespace

TEST(CommandContext, ParameterTypesAndFaults) {
    // Each reader leaves its output at a sentinel unless it wrote it, and answers what it read.
    using Reader = std::function<CBelString(CJokCommandContext&, int optional)>;
    const Reader asString = [](CJokCommandContext& c, int optional) {
        CBelString out = "untouched";
        c.GetParam("p", &out, optional);
        return out;
    };
    const Reader asDouble = [](CJokCommandContext& c, int optional) {
        double out = -1;
        c.GetParam("p", &out, optional);
        CBelString text;
        text.Format("%g", out);
        return text;
    };
    const Reader asInt = [](CJokCommandContext& c, int optional) {
        int out = -1;
        c.GetParam("p", &out, optional);
        CBelString text;
        text.Format("%d", out);
        return text;
    };
    const Reader asCommand = [](CJokCommandContext& c, int optional) {
        IJokCommand* out = reinterpret_cast<IJokCommand*>(&c);
        c.GetParam("p", &out, optional);
        if (out == reinterpret_cast<IJokCommand*>(&c))
            return CBelString("untouched");
        if (!out)
            return CBelString("nullptr");
        out->Release();
        return CBelString("command");
    };
    const Reader asGeneric = [](CJokCommandContext& c, int optional) {
        CJokGenericData* out = nullptr;
        c.GetParam("p", &out, optional);
        if (!out)
            return CBelString("untouched");
        CBelString text;
        text.Format("type %d refs %ld", out->GetType(), out->GetRefCount());
        out->Release();
        return text;
    };

    const struct {
        const char* what;
        const ParamMaker& param;
        const Reader& read;
        int optional;
        const char* value;
        const char* error; // "" when the call may proceed
    } cases[] = {
        {"string", kString, asString, 0, "video", ""},
        {"optional absent", kNone, asString, 1, "untouched", ""},
        {"none counts as absent", kNoneValue, asString, 1, "untouched", ""},
        {"required absent", kNone, asString, 0, "untouched", "Call: missing parameter 'p'"},
        {"number as string", kNumber, asString, 1, "untouched",
         "Call: p: expected a string, got a number"},
        {"double", kNumber, asDouble, 0, "2.75", ""},
        {"boolean is no double", kBoolean, asDouble, 0, "-1",
         "Call: p: expected a number, got a boolean"},
        {"int truncates", kNumber, asInt, 0, "2", ""},
        {"int from boolean", kBoolean, asInt, 0, "1", ""},
        {"int out of range", kHuge, asInt, 0, "-1", "Call: p: expected an integer, got 1e+12"},
        {"callback", kCallback, asCommand, 0, "command", ""},
        {"null callback", kNull, asCommand, 0, "nullptr", ""},
        {"string as callback", kString, asCommand, 0, "untouched",
         "Call: p: expected a function, got a string"},
        {"generic adds reference", kString, asGeneric, 0, "type 4 refs 2", ""},
        {"generic null", kNull, asGeneric, 0, "type 1 refs 2", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        CBelDiagnosticCapture capture;
        CJokCommandContext context;
        context.SetCallName("Call");
        c.param(context);
        EXPECT_EQ(c.read(context, c.optional), c.value);
        const bool ok = *c.error == '\0';
        EXPECT_EQ(context.CanProceed(0), ok ? 1 : 0);
        EXPECT_EQ(capture.Text(EBelDiagnosticKind::ScriptError), c.error);
    }
}

TEST(CommandContext, FaultsAreReportedOnceTogether) {
    CBelDiagnosticCapture capture;
    CJokCommandContext context;
    context.AddParam("paths", 3.0);
    CJokGenericData* paths = nullptr;
    CBelString path;
    context.GetParam("dataPath", &path, 0);
    context.GetParam("paths", &path, 1);
    EXPECT_EQ(context.CanProceed(1), 0); // quiet: nothing reported yet
    EXPECT_EQ(capture.Text(EBelDiagnosticKind::ScriptError), "");
    EXPECT_EQ(context.CanProceed(0), 0);
    EXPECT_EQ(context.CanProceed(0), 0);
    EXPECT_EQ(capture.Text(EBelDiagnosticKind::ScriptError),
              "missing parameter 'dataPath'; paths: expected a string, got a number");
    EXPECT_EQ(paths, nullptr);
}

TEST(CommandContext, PositionalParametersAndReturnValueReferences) {
    CJokGdDouble* motion = CJokGdDouble::Allocate(0.5);
    CJokGdString* result = CJokGdString::Allocate("done");
    {
        CJokCommandContext context;
        context.AddParam(nullptr, motion);
        context.AddParam("", 7);
        EXPECT_EQ(motion->GetRefCount(), 2);
        ASSERT_EQ(context.GetPositionalCount(), 2);
        EXPECT_EQ(context.GetPositional(0), motion);
        EXPECT_EQ(context.GetPositional(1)->GetType(), JOKGD_DOUBLE);
        EXPECT_EQ(context.GetPositional(2), nullptr);
        EXPECT_EQ(context.FindParam(""), nullptr);

        context.SetReturnValue(result);
        EXPECT_EQ(result->GetRefCount(), 2);
        context.SetReturnValueNoRef(CJokGdNull::Allocate()); // replaces: releases "done"
        EXPECT_EQ(result->GetRefCount(), 1);
        CJokGenericData* detached = context.DetachReturnValue();
        EXPECT_EQ(context.GetReturnValue(), nullptr);
        EXPECT_EQ(detached->GetType(), JOKGD_NULL);
        detached->Release();
        context.SetReturnValue(result);
    }
    EXPECT_EQ(motion->GetRefCount(), 1);
    EXPECT_EQ(result->GetRefCount(), 1);
    motion->Release();
    result->Release();
}

// Every function object reports the parameters its function never read, once, with what it did
// read; an exception from the function becomes the call's script error.
TEST(CommandContext, FunctionObjectsReportUnusedParametersAndExceptions) {
    CJokFreeFunctionObj create("CreateProbe", "&CreateProbe", [](CJokCommandContext* context) {
        CBelString path;
        context->GetParam("dataPath", &path, 1);
        context->GetPositional(0);
        return 1;
    });
    const struct {
        std::function<void(CJokCommandContext&)> m_Add;
        const char* m_Error;
    } cases[] = {
        {[](CJokCommandContext& c) { c.AddParam("dataPath", "v"); }, ""},
        {[](CJokCommandContext& c) { c.AddParam("dataPat", "v"); },
         "CreateProbe: unused parameter 'dataPat' (it reads: dataPath)"},
        {[](CJokCommandContext& c) {
             c.AddParam("dataPath", "v");
             c.AddParam("paths", "w");
             c.AddParam("x", 1.0);
             c.AddParam(nullptr, 1.0);
             c.AddParam(nullptr, 2.0);
         },
         "CreateProbe: unused parameters 'paths', 'x' and argument 2 (it reads: dataPath, "
         "argument 1)"},
    };
    for (const auto& c : cases) {
        CBelDiagnosticCapture capture;
        CJokCommandContext context;
        c.m_Add(context);
        EXPECT_EQ(create.CallMethod(&context), 1);
        EXPECT_EQ(capture.Text(EBelDiagnosticKind::ScriptError), c.m_Error);
    }

    CJokFreeFunctionObj throwing("CreateHuge", "&CreateHuge",
                                 [](CJokCommandContext*) -> int { throw std::bad_alloc(); });
    CBelDiagnosticCapture capture;
    CJokCommandContext context;
    EXPECT_EQ(throwing.CallMethod(&context), 1) << "the exception stays inside the call";
    EXPECT_EQ(capture.Text(EBelDiagnosticKind::ScriptError), "CreateHuge: out of memory");
}
