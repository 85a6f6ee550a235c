#include "filters/AdvancedPacketFilter.h"

#include "entry/Registry.h"
#include "expr/ExpressionEvalOp.h"
#include "framework/bel/BelClock.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/GenericData.h"
#include "framework/jok/Property.h"
#include "framework/jok/PropertyMap.h"
#include "framework/kor/Packet.h"
#include "framework/kor/PacketSource.h"

#include <algorithm>
#include <cstring>

// ---------------------------------------------------------------------------------------------
// The module

CZorAdvancedPacketFilter::CZorAdvancedPacketFilter(const char* name)
    : CKorUnbufferedModule(name && *name ? name : "AdvancedPacketFilter") {}

CZorAdvancedPacketFilter::~CZorAdvancedPacketFilter() {
    KillAlarm();
}

bool CZorAdvancedPacketFilter::SetFilter(std::string_view text, std::string* failure) {
    CZorPacketVocabulary::SCompiled compiled;
    bool ok = true;
    if (!text.empty()) {
        std::string messages;
        ok = m_Vocabulary.CompileScript(text, &compiled, &messages);
        if (!ok && failure) {
            // The caller tells the script author; one line, the messages joined.
            failure->clear();
            for (char c : messages)
                *failure += c == '\n' ? "; " : std::string(1, c);
            while (failure->size() >= 2 && failure->compare(failure->size() - 2, 2, "; ") == 0)
                failure->resize(failure->size() - 2);
        } else {
            size_t start = 0;
            while (start < messages.size()) {
                const size_t end = std::min(messages.find('\n', start), messages.size());
                BelDump("%.*s\n", static_cast<int>(end - start), messages.data() + start);
                start = end + 1;
            }
        }
    }
    m_FilterText = ok ? std::string(text) : std::string();
    if (m_Evaluating) {
        m_Next = std::move(compiled);
        m_HasNext = true;
        return ok;
    }
    m_pTree = std::move(compiled.m_Tree);
    m_Vocabulary.InstallBinding(std::move(compiled.m_Bound));
    return ok;
}

void CZorAdvancedPacketFilter::ProcessPacket() {
    m_Vocabulary.BeginPacket();
    if (!m_pTree) {
        m_Vocabulary.ReadHostNumber(CZorPacketVocabulary::CALLBACK);
        return;
    }
    m_Evaluating = true;
    m_pTree->Evaluate(m_Vocabulary);
    m_Evaluating = false;
    if (m_HasNext) {
        m_HasNext = false;
        m_pTree = std::move(m_Next.m_Tree);
        m_Vocabulary.InstallBinding(std::move(m_Next.m_Bound));
    }
}

bool CZorAdvancedPacketFilter::Inject(CKorPacket* packet) {
    if (!IsProcessing() && Receive(packet))
        return true;
    packet->Release();
    return false;
}

void CZorAdvancedPacketFilter::TimeOut(long) {
    if (!IsLocked())
        return;
    Unlock(0);
    Poll(); // sends the held packet, then asks upstream for what it kept back
}

void CZorAdvancedPacketFilter::Flush() {
    m_Vocabulary.DropSaved();
    CKorUnbufferedModule::Flush();
}

void CZorAdvancedPacketFilter::CHost::UnlockFilter() {
    m_Owner.Unlock(0);
    // Inside Receive the current packet goes on when processing ends; from outside (a script
    // setting LOCKED) the held input must be restarted here.
    if (!m_Owner.IsProcessing())
        m_Owner.Poll();
}

void CZorAdvancedPacketFilter::CHost::FilterCallback() {
    if (m_Owner.m_Callback)
        m_Owner.m_Callback();
}

void CZorAdvancedPacketFilter::CHost::SendToOutput(CKorPacket* packet) {
    if (!m_Owner.DownStreamModule()->Receive(packet))
        packet->Release();
}

// ---------------------------------------------------------------------------------------------
// The component

namespace {

const char* KindName(const CKorPacket* packet) {
    if (!packet)
        return "";
    switch (packet->GetKind()) {
    case CKorPacket::KIND_DATA:
        return "DATA";
    case CKorPacket::KIND_AUDIO:
        return "AUDIO";
    case CKorPacket::KIND_TEXT:
        return "TEXT";
    case CKorPacket::KIND_GENERAL_DATA:
        return "GENERALDATA";
    case CKorPacket::KIND_TIMEBASE:
        return "TIMEBASE";
    case CKorPacket::KIND_VIDEO:
        return "VIDEO";
    case CKorPacket::KIND_GENERAL_DATA_LIST:
        return "GDLIST";
    case CKorPacket::KIND_GPS:
        return "GPS";
    case CKorPacket::KIND_TRELLUM:
        return "TRELLUM";
    default:
        return "UNKNOWN";
    }
}

void ReturnBoolean(CJokCommandContext* context, bool value) {
    context->SetReturnValueNoRef(CJokGdBoolean::Allocate(value ? 1 : 0));
}

// Audio packets come from the pool at the size the framework's audio sources use.
constexpr long kAudioPacketCapacity = 1440;

} // namespace

CAdvancedPacketFilterCom::CAdvancedPacketFilterCom(const char* dataPath)
    : CKor2PinComponent("AdvancedPacketFilter"),
      m_pOwned(std::make_unique<CZorAdvancedPacketFilter>()), m_pModule(m_pOwned.get()) {
    ConnectPath(dataPath);
}

CAdvancedPacketFilterCom::~CAdvancedPacketFilterCom() {
    m_pModule->SetCallback({});
    if (m_pCallback)
        m_pCallback->Release();
}

CKorModule* CAdvancedPacketFilterCom::CreateContext(const char* path) {
    return SingleContext(path, m_pOwned);
}

const CJokPropertyMap<CAdvancedPacketFilterCom>& CAdvancedPacketFilterCom::PropertyMap() {
    using C = CAdvancedPacketFilterCom;
    static const CJokPropertyMap<C> map = [] {
        CJokPropertyMap<C> m;
        m.AddNotifiedString("filter", &C::FilterHandler, "&CAdvancedPacketFilterCom::FilterHandler")
            .AddNotifiedString("text", &C::TextHandler, "&CAdvancedPacketFilterCom::TextHandler")
            .AddNotifiedString("packetType", &C::PacketTypeHandler,
                               "&CAdvancedPacketFilterCom::PacketTypeHandler", 1)
            .AddNotifiedString("dumpFile", &C::DumpFileHandler,
                               "&CAdvancedPacketFilterCom::DumpFileHandler")
            .AddNotifiedInterface("callback", &C::CallbackHandler, IID_IJokCommand, "IJokCommand",
                                  "&CAdvancedPacketFilterCom::CallbackHandler")
            .AddFunction("CreateTextPacket", &C::CreateTextPacket,
                         "&CAdvancedPacketFilterCom::CreateTextPacket")
            .AddFunction("CreateTextSchema", &C::CreateTextSchema,
                         "&CAdvancedPacketFilterCom::CreateTextSchema")
            .AddFunction("AddTextSchemaField", &C::AddTextSchemaField,
                         "&CAdvancedPacketFilterCom::AddTextSchemaField")
            .AddFunction("CreateAudioPacket", &C::CreateAudioPacket,
                         "&CAdvancedPacketFilterCom::CreateAudioPacket")
            .AddFunction("CreateTimebasePacket", &C::CreateTimebasePacket,
                         "&CAdvancedPacketFilterCom::CreateTimebasePacket")
            .AddFunction("GetVariable", &C::GetVariable, "&CAdvancedPacketFilterCom::GetVariable")
            .AddFunction("SetVariable", &C::SetVariable, "&CAdvancedPacketFilterCom::SetVariable")
            .AddFunction("GetStringVar", &C::GetStringVar,
                         "&CAdvancedPacketFilterCom::GetStringVar")
            .AddFunction("SetStringVar", &C::SetStringVar,
                         "&CAdvancedPacketFilterCom::SetStringVar")
            .AddFunction("Flush", &C::Flush, "&CAdvancedPacketFilterCom::Flush");
        return m;
    }();
    return map;
}

CJokGenericData* CAdvancedPacketFilterCom::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags))
        return value;
    return CKor2PinComponent::GetProperty(name, flags);
}

int CAdvancedPacketFilterCom::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1)
        return CKor2PinComponent::SetProperty(name, value);
    return result != 0;
}

CJokPropertyEnum* CAdvancedPacketFilterCom::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKor2PinComponent::GetPropertyEnumerator());
}

int CAdvancedPacketFilterCom::FilterHandler(CBelString* value, int set) {
    if (!set) {
        *value = m_pModule->GetFilter();
        return 1;
    }
    std::string failure;
    if (!m_pModule->SetFilter(value->str(), &failure))
        return JokRefuseProperty(failure.c_str());
    return 1;
}

int CAdvancedPacketFilterCom::TextHandler(CBelString* value, int set) {
    CKorPacket* packet = m_pModule->CurrentPacket();
    const bool isText = packet && packet->GetKind() == CKorPacket::KIND_TEXT;
    if (!set) {
        *value = isText ? static_cast<CKorTextPacket*>(packet)->Text() : CBelString();
        return 1;
    }
    if (!isText)
        return JokRefuseProperty(packet ? "the current packet is not a text packet"
                                        : "there is no current packet (set it from the callback)");
    auto* text = static_cast<CKorTextPacket*>(packet);
    // The same rule as the script's TEXTSTR: a schema packet's text is made from its fields.
    if (m_pModule->Vocabulary().HasSchema(text->GetSchema())) {
        BelDump("APF: Packet defined by schema, cannot set text directly.\n");
        return JokRefuseProperty("the packet is defined by a schema: set its fields instead");
    }
    text->SetText(value->c_str());
    return 1;
}

int CAdvancedPacketFilterCom::PacketTypeHandler(CBelString* value, int set) {
    if (set)
        return 0;
    *value = KindName(m_pModule->CurrentPacket());
    return 1;
}

int CAdvancedPacketFilterCom::DumpFileHandler(CBelString* value, int set) {
    if (!set) {
        *value = m_pModule->Vocabulary().DumpFile();
        return 1;
    }
    m_pModule->Vocabulary().SetDumpFile(value->str());
    return 1;
}

// The module learns of the callback only while one is set, so that a filter without one does not
// pay for taking the arrival time.
int CAdvancedPacketFilterCom::CallbackHandler(IUnknown** value, int set) {
    if (!set) {
        if (m_pCallback)
            m_pCallback->AddRef();
        *value = m_pCallback;
        return 1;
    }
    auto* callback = static_cast<IJokCommand*>(*value);
    if (callback)
        callback->AddRef();
    if (m_pCallback)
        m_pCallback->Release();
    m_pCallback = callback;
    if (m_pCallback)
        m_pModule->SetCallback([this] { CallScriptCallback(); });
    else
        m_pModule->SetCallback({});
    return 1;
}

void CAdvancedPacketFilterCom::CallScriptCallback() {
    if (!m_pCallback)
        return;
    CJokCommandContext context;
    CallScript(m_pCallback, context);
}

bool CAdvancedPacketFilterCom::CanInject(CJokCommandContext* context, const char* method) {
    if (!m_pModule->IsProcessing())
        return true;
    CBelString message;
    message.Format("%s: the filter is busy with a packet", method);
    context->OutputErrorString(message);
    ReturnBoolean(context, false);
    return false;
}

void CAdvancedPacketFilterCom::StampPacket(CJokCommandContext* context, CKorPacket* packet) {
    double timeStamp = static_cast<double>(m_pModule->GetTime());
    double realTimeStamp = BelDoubleTime();
    context->GetParam("timestamp", &timeStamp, 1);
    context->GetParam("realTimeStamp", &realTimeStamp, 1);
    packet->SetTimeStamp(CZorPacketVocabulary::ToTimeStamp(timeStamp));
    packet->SetTimeStampValid(true);
    packet->SetRealTimeStamp(realTimeStamp);
}

int CAdvancedPacketFilterCom::CreateTextPacket(CJokCommandContext* context) {
    double code = 0;
    double unused = 0;
    context->GetParam("schemaCode", &code, 0);
    context->GetParam("timestamp", &unused, 1);
    context->GetParam("realTimeStamp", &unused, 1);
    if (!context->CanProceed(0))
        return 1;
    if (!CanInject(context, "CreateTextPacket"))
        return 1;
    const int schema = static_cast<int>(TruncateToWord(code));
    std::string text;
    if (!m_pModule->Vocabulary().BuildSchemaText(schema, &text)) {
        CBelString message;
        message.Format("CreateTextPacket: no text schema %d", schema);
        context->OutputErrorString(message);
        ReturnBoolean(context, false);
        return 1;
    }
    auto* packet = new CKorTextPacket(text.c_str(), schema);
    StampPacket(context, packet);
    ReturnBoolean(context, m_pModule->Inject(packet));
    return 1;
}

int CAdvancedPacketFilterCom::CreateTextSchema(CJokCommandContext* context) {
    double code = 0;
    context->GetParam("schemaCode", &code, 0);
    if (!context->CanProceed(0))
        return 1;
    m_pModule->Vocabulary().CreateSchema(static_cast<int>(TruncateToWord(code)));
    return 1;
}

int CAdvancedPacketFilterCom::AddTextSchemaField(CJokCommandContext* context) {
    double code = 0;
    CBelString variable;
    context->GetParam("schemaCode", &code, 0);
    context->GetParam("variable", &variable, 0);
    if (!context->CanProceed(0))
        return 1;
    const std::string error = m_pModule->Vocabulary().AddSchemaField(
        static_cast<int>(TruncateToWord(code)), variable.str());
    if (!error.empty())
        context->OutputErrorString(("AddTextSchemaField: " + error).c_str());
    return 1;
}

int CAdvancedPacketFilterCom::CreateAudioPacket(CJokCommandContext* context) {
    CBelString data;
    double subMediaId = 0;
    double unused = 0;
    context->GetParam("audioData", &data, 0);
    context->GetParam("submid", &subMediaId, 0);
    context->GetParam("timestamp", &unused, 1);
    context->GetParam("realTimeStamp", &unused, 1);
    if (!context->CanProceed(0))
        return 1;
    if (!CanInject(context, "CreateAudioPacket"))
        return 1;
    long formatSize = 0;
    const bool inRange = subMediaId >= 0.0 && subMediaId < 4294967296.0;
    const unsigned id = inRange ? static_cast<unsigned>(subMediaId) : 0u;
    const WAVEFORMATEX* format =
        inRange ? g_AudioFormatMgr.GrabFormatEXBySubMID(id, formatSize) : nullptr;
    if (!format) {
        context->OutputErrorString("submid is out of bounds\n");
        ReturnBoolean(context, false);
        return 1;
    }
    // One sequence number per format, so receivers re-examine the format only when it changes.
    auto found = std::find_if(m_AudioFormatNumbers.begin(), m_AudioFormatNumbers.end(),
                              [id](const auto& entry) { return entry.first == id; });
    if (found == m_AudioFormatNumbers.end())
        found = m_AudioFormatNumbers.emplace(m_AudioFormatNumbers.end(), id,
                                             CKorPacket::GetNewFormatSeqNumber());
    const long size = data.GetLength();
    CKorAudioPacket* packet = g_AudioPacketSource.NewPacket(std::max(size, kAudioPacketCapacity));
    std::memcpy(packet->GetData(), data.c_str(), static_cast<size_t>(size));
    packet->SetDataSize(static_cast<unsigned long>(size));
    packet->SetAudioFormat(format, found->second);
    StampPacket(context, packet);
    ReturnBoolean(context, m_pModule->Inject(packet));
    return 1;
}

int CAdvancedPacketFilterCom::CreateTimebasePacket(CJokCommandContext* context) {
    double timeStamp = 0;
    double flags = 0;
    double scale = 1.0;
    context->GetParam("timestamp", &timeStamp, 0);
    context->GetParam("flags", &flags, 1);
    context->GetParam("scale", &scale, 1);
    if (!context->CanProceed(0))
        return 1;
    if (!CanInject(context, "CreateTimebasePacket"))
        return 1;
    const auto time = static_cast<std::int32_t>(CZorPacketVocabulary::ToTimeStamp(timeStamp));
    auto* packet = new CKorTimeBasePacket(time, scale);
    packet->SetFlags(static_cast<int>(TruncateToWord(flags)));
    packet->SetTimeStamp(static_cast<std::uint32_t>(time));
    packet->SetTimeStampValid(true);
    // Our own reference: the packet may be gone downstream by the time Receive returns.
    packet->AddRef();
    const bool accepted = m_pModule->Inject(packet);
    if (accepted)
        m_pModule->SetTimeBase(packet);
    packet->Release();
    ReturnBoolean(context, accepted);
    return 1;
}

int CAdvancedPacketFilterCom::LookupOrReport(const CBelString& name, const char* method,
                                             CJokCommandContext* context) {
    const int index = m_pModule->Vocabulary().Lookup(name.str(), false);
    if (index >= 0)
        return index;
    // The nil answer tells the script each time; the message only the first time a name is
    // asked for, so a script that polls a variable before its filter sets it is not flooded.
    if (m_UnknownNamesReported.insert(name.str()).second) {
        CBelString message;
        message.Format("%s: no variable '%s' (the answer is nil)", method, name.c_str());
        context->OutputErrorString(message);
    }
    return -1;
}

int CAdvancedPacketFilterCom::GetVariable(CJokCommandContext* context) {
    CBelString name;
    context->GetParam("variable", &name, 0);
    if (!context->CanProceed(0))
        return 1;
    const int index = LookupOrReport(name, "GetVariable", context);
    if (index >= 0) {
        context->SetReturnValueNoRef(
            CJokGdDouble::Allocate(m_pModule->Vocabulary().ReadValue(index)));
    }
    return 1;
}

int CAdvancedPacketFilterCom::SetVariable(CJokCommandContext* context) {
    CBelString name;
    double value = 0;
    context->GetParam("variable", &name, 0);
    context->GetParam("value", &value, 0);
    if (!context->CanProceed(0))
        return 1;
    CZorPacketVocabulary& vocabulary = m_pModule->Vocabulary();
    vocabulary.WriteValue(vocabulary.Lookup(name.str(), true), value);
    return 1;
}

int CAdvancedPacketFilterCom::GetStringVar(CJokCommandContext* context) {
    CBelString name;
    context->GetParam("variable", &name, 0);
    if (!context->CanProceed(0))
        return 1;
    const int index = LookupOrReport(name, "GetStringVar", context);
    if (index >= 0) {
        std::string text;
        m_pModule->Vocabulary().ReadText(index, text);
        context->SetReturnValueNoRef(CJokGdString::Allocate(CBelString(text)));
    }
    return 1;
}

int CAdvancedPacketFilterCom::SetStringVar(CJokCommandContext* context) {
    CBelString name;
    CBelString value;
    context->GetParam("variable", &name, 0);
    context->GetParam("value", &value, 0);
    if (!context->CanProceed(0))
        return 1;
    CZorPacketVocabulary& vocabulary = m_pModule->Vocabulary();
    vocabulary.WriteText(vocabulary.Lookup(name.str(), true), value.str());
    return 1;
}

int CAdvancedPacketFilterCom::Flush(CJokCommandContext* context) {
    if (!context->CanProceed(0))
        return 1;
    m_pModule->Flush();
    return 1;
}

int CreateAdvancedPacketFilter(CJokCommandContext* context) {
    return ZorCreateWithDataPath<CAdvancedPacketFilterCom>(context);
}
