#include "host/LuaPacket.h"

#include "framework/kor/BoundingBoxesMD.h"
#include "framework/kor/Packet.h"
#include "framework/kor/PacketSource.h"
#include "host/HostState.h"
#include "host/LuaFields.h"

#include <cstring>
#include <lua.hpp>
#include <optional>

namespace {

constexpr const char* kPacketType = "zor.packet";
// What a packet value says once its reference is gone (its finaliser was called by hand).
constexpr const char* kReleased = "the packet was released";
// What the framework's audio packet source hands out, so script-made audio packets look like
// captured ones.
constexpr unsigned long kAudioCapacity = 1440;
constexpr WORD kTagPcm = 1;
constexpr WORD kTagALaw = 6;
constexpr WORD kTagMuLaw = 7;

struct SKindName {
    const char* m_Name;
    int m_Kind;
};
constexpr SKindName kKinds[] = {{"data", CKorPacket::KIND_DATA},
                                {"audio", CKorPacket::KIND_AUDIO},
                                {"text", CKorPacket::KIND_TEXT},
                                {"timebase", CKorPacket::KIND_TIMEBASE},
                                {"video", CKorPacket::KIND_VIDEO}};
constexpr const char* kFrameTypes[] = {"I", "P", "PB", "B", "EI", "EP"};
constexpr long long kInt32Min = -2147483648LL;
constexpr long long kInt32Max = 2147483647LL;
constexpr long long kUInt32Max = 4294967295LL;

struct SLuaPacket {
    CKorPacket* m_pPacket; // one reference
};

// Everything zor.packet reads, checked before a packet is made.
struct SPacketFields {
    int m_Kind = CKorPacket::KIND_DATA;
    std::optional<long long> m_Ts;
    std::optional<bool> m_TsValid;
    double m_Rts = 0;
    long long m_Stream = 0;
    long long m_FrameType = 0;
    long long m_Layer = 0;
    std::vector<std::pair<int, int>> m_Attributes;
    std::string m_Data;
    std::string m_Text;
    long long m_Schema = 0;
    long long m_Time = 0;
    double m_Scale = 1.0;
    long long m_Flags = 0;
    bool m_HasAudioFormat = false;
    WAVEFORMATEX m_Audio{};
    std::string m_AudioExtra; // the record's extra bytes (m_Audio.cbSize of them)
    std::optional<long long> m_Seq;
    bool m_HasVideoFormat = false;
    std::string m_Video; // the header and the codec set-up data after it
    bool m_HasBoxes = false;
    std::vector<SKorBoundingBox> m_Boxes;
};

const char* KindName(int kind) {
    for (const SKindName& known : kKinds) {
        if (known.m_Kind == kind) {
            return known.m_Name;
        }
    }
    return nullptr;
}

bool ReadKind(CLuaFields& fields, int* kind) {
    std::string name;
    long long code = 0;
    if (fields.Type("kind") == LUA_TNUMBER) {
        fields.Integer("kind", &code, 0, 255);
        if (fields.Ok() && !KindName(static_cast<int>(code))) {
            fields.Fail("kind " + std::to_string(code) +
                        " cannot be made here (data 0, audio 1, text 2, timebase 4, video 9)");
        }
        *kind = static_cast<int>(code);
        return fields.Ok();
    }
    if (!fields.String("kind", &name)) {
        return fields.Ok();
    }
    for (const SKindName& known : kKinds) {
        if (name == known.m_Name) {
            *kind = known.m_Kind;
            return true;
        }
    }
    fields.Fail("unknown kind '" + name + "' (data, audio, text, timebase, video)");
    return false;
}

void ReadFrameType(CLuaFields& fields, long long* frameType) {
    if (fields.Type("frameType") != LUA_TSTRING) {
        fields.Integer("frameType", frameType, 0, 5);
        return;
    }
    std::string name;
    fields.String("frameType", &name);
    for (int i = 0; i < 6; ++i) {
        if (name == kFrameTypes[i]) {
            *frameType = i;
            return;
        }
    }
    fields.Fail("unknown frameType '" + name + "' (I, P, PB, B, EI, EP)");
}

void ReadAttributes(lua_State* L, CLuaFields& fields, SPacketFields& out) {
    if (!fields.Table("attributes")) {
        return;
    }
    lua_pushnil(L);
    while (lua_next(L, -2)) {
        int isKey = 0;
        int isValue = 0;
        const lua_Integer number = lua_tointegerx(L, -2, &isKey);
        const lua_Integer value = lua_tointegerx(L, -1, &isValue);
        lua_pop(L, 1);
        const auto fits = [](lua_Integer v) { return v >= kInt32Min && v <= kInt32Max; };
        if (!isKey || !isValue || lua_type(L, -1) != LUA_TNUMBER || !fits(number) || !fits(value)) {
            fields.Fail("attributes map whole numbers to whole numbers (32-bit)");
            lua_pop(L, 1);
            break;
        }
        out.m_Attributes.emplace_back(static_cast<int>(number), static_cast<int>(value));
    }
    lua_pop(L, 1);
    if (out.m_Attributes.size() > static_cast<size_t>(CKorPacket::kMaxAttributes)) {
        fields.Fail("at most " + std::to_string(CKorPacket::kMaxAttributes) + " attributes");
    }
}

// "boxes": { {left, top, right, bottom [, id]}, ... } as "BBX1" metadata.
void ReadBoxes(lua_State* L, CLuaFields& fields, SPacketFields& out) {
    if (!fields.Table("boxes")) {
        return;
    }
    out.m_HasBoxes = true;
    const lua_Integer count = static_cast<lua_Integer>(lua_rawlen(L, -1));
    for (lua_Integer i = 1; i <= count && fields.Ok(); ++i) {
        lua_rawgeti(L, -1, i);
        const lua_Integer size =
            lua_type(L, -1) == LUA_TTABLE ? static_cast<lua_Integer>(lua_rawlen(L, -1)) : 0;
        lua_Integer v[5] = {0, 0, 0, 0, 0};
        bool ok = size == 4 || size == 5;
        for (lua_Integer j = 0; ok && j < size; ++j) {
            lua_rawgeti(L, -1, j + 1);
            int isInteger = 0;
            v[j] = lua_tointegerx(L, -1, &isInteger);
            const lua_Integer limit = j == 4 ? 0xFFFFFFFFLL : 0xFFFF;
            ok = isInteger && v[j] >= 0 && v[j] <= limit;
            lua_pop(L, 1);
        }
        lua_pop(L, 1);
        if (!ok) {
            fields.Fail("boxes " + std::to_string(i) +
                        ": expected {left, top, right, bottom [, id]} of whole numbers 0..65535");
            break;
        }
        out.m_Boxes.push_back(
            SKorBoundingBox{static_cast<std::uint16_t>(v[0]), static_cast<std::uint16_t>(v[1]),
                            static_cast<std::uint16_t>(v[2]), static_cast<std::uint16_t>(v[3]),
                            static_cast<std::uint32_t>(v[4])});
    }
    lua_pop(L, 1);
}

bool ReadVideoFormat(lua_State* L, int index, std::string* record, std::optional<long long>* seq,
                     std::string* error) {
    CLuaFields fields(L, index, "video format");
    fields.Allow({"width", "height", "compression", "bits", "seq", "extra"});
    long long width = 0, height = 0, bits = 24, compression = 0, number = 0;
    if (!fields.Integer("width", &width, kInt32Min, kInt32Max) ||
        !fields.Integer("height", &height, kInt32Min, kInt32Max)) {
        fields.Fail("width and height are required");
    }
    fields.Integer("bits", &bits, 0, 0xFFFF);
    if (fields.Type("compression") == LUA_TSTRING) {
        std::string fourcc;
        fields.String("compression", &fourcc);
        if (fourcc.size() != 4) {
            fields.Fail("compression must be a FOURCC of 4 characters or a number");
        } else {
            compression = MakeFourCC(fourcc[0], fourcc[1], fourcc[2], fourcc[3]);
        }
    } else {
        fields.Integer("compression", &compression, 0, kUInt32Max);
    }
    if (fields.Integer("seq", &number, kInt32Min, kInt32Max)) {
        *seq = number;
    }
    std::string extra;
    fields.String("extra", &extra);
    if (extra.size() > static_cast<size_t>(CKorVideoFormat::kMaxExtraSize)) {
        fields.Fail("extra holds at most " + std::to_string(CKorVideoFormat::kMaxExtraSize) +
                    " bytes");
    }
    if (!fields.Ok()) {
        *error = fields.Error();
        return false;
    }
    BITMAPINFOHEADER header{};
    header.biSize = static_cast<DWORD>(sizeof(BITMAPINFOHEADER) + extra.size());
    header.biWidth = static_cast<LONG>(width);
    header.biHeight = static_cast<LONG>(height);
    header.biPlanes = 1;
    header.biBitCount = static_cast<WORD>(bits);
    header.biCompression = static_cast<DWORD>(compression);
    record->assign(reinterpret_cast<const char*>(&header), sizeof(header));
    *record += extra;
    return true;
}

bool ReadFormat(lua_State* L, CLuaFields& fields, SPacketFields& out) {
    if (!fields.Table("format")) {
        return fields.Ok();
    }
    std::string error;
    bool ok = false;
    if (out.m_Kind == CKorPacket::KIND_AUDIO) {
        ok = out.m_HasAudioFormat =
            LuaReadAudioFormat(L, -1, &out.m_Audio, &error, &out.m_AudioExtra);
        CLuaFields format(L, -1, "");
        long long seq = 0;
        if (ok && format.Integer("seq", &seq, kInt32Min, kInt32Max)) {
            out.m_Seq = seq;
        }
    } else if (out.m_Kind == CKorPacket::KIND_VIDEO) {
        ok = out.m_HasVideoFormat = ReadVideoFormat(L, -1, &out.m_Video, &out.m_Seq, &error);
    } else {
        error = "only audio and video packets carry a format";
    }
    lua_pop(L, 1);
    if (!ok) {
        fields.Fail(error);
    }
    return ok;
}

bool ReadFields(lua_State* L, SPacketFields& out, std::string* error) {
    CLuaFields fields(L, 1, "zor.packet");
    fields.Allow({"kind", "ts", "tsValid", "rts", "stream", "frameType", "layer", "attributes",
                  "data", "text", "schema", "time", "scale", "flags", "format", "boxes"});
    ReadKind(fields, &out.m_Kind);
    long long ts = 0;
    bool valid = false;
    // Either reading of the 32-bit millisecond count: signed, or unsigned as packets store it.
    if (fields.Integer("ts", &ts, kInt32Min, kUInt32Max)) {
        out.m_Ts = ts;
    }
    if (fields.Boolean("tsValid", &valid)) {
        out.m_TsValid = valid;
    }
    fields.Finite("rts", &out.m_Rts);
    fields.Integer("stream", &out.m_Stream, kInt32Min, kInt32Max);
    const int kind = out.m_Kind;
    const auto only = [&](const char* name, bool allowed, const char* which) {
        if (!allowed && fields.Has(name)) {
            fields.Fail(std::string("field '") + name + "' is for " + which + " packets");
        }
    };
    only("frameType", kind == CKorPacket::KIND_VIDEO, "video");
    only("layer", kind == CKorPacket::KIND_VIDEO, "video");
    only("text", kind == CKorPacket::KIND_TEXT, "text");
    only("schema", kind == CKorPacket::KIND_TEXT, "text");
    for (const char* name : {"time", "scale", "flags"}) {
        only(name, kind == CKorPacket::KIND_TIMEBASE, "timebase");
    }
    only("data",
         kind == CKorPacket::KIND_DATA || kind == CKorPacket::KIND_AUDIO ||
             kind == CKorPacket::KIND_VIDEO,
         "data, audio and video");
    ReadFrameType(fields, &out.m_FrameType);
    if (fields.Ok() && (out.m_FrameType < 0 || out.m_FrameType > 5)) {
        fields.Fail("frameType must be 0..5 (I, P, PB, B, EI, EP)");
    }
    fields.Integer("layer", &out.m_Layer, kInt32Min, kInt32Max);
    ReadAttributes(L, fields, out);
    ReadBoxes(L, fields, out);
    fields.String("data", &out.m_Data);
    fields.String("text", &out.m_Text);
    fields.Integer("schema", &out.m_Schema, kInt32Min, kInt32Max);
    fields.Integer("time", &out.m_Time, kInt32Min, kInt32Max);
    fields.Finite("scale", &out.m_Scale);
    fields.Integer("flags", &out.m_Flags, kInt32Min, kInt32Max);
    ReadFormat(L, fields, out);
    *error = fields.Error();
    return fields.Ok();
}

// A video packet in a planar frame format whose data holds exactly the planes packed (luma rows,
// then for NV12 the rows of interleaved chroma pairs at half resolution) is a decoded frame: its
// plane layout is set so that frame consumers read it.
void SetFramePlanes(const BITMAPINFOHEADER& header, CKorVideoPacket* video) {
    const bool grey = header.biCompression == MakeFourCC('Y', '8', '0', '0');
    if (!grey && header.biCompression != MakeFourCC('N', 'V', '1', '2')) {
        return;
    }
    const long long width = header.biWidth;
    const long long height =
        header.biHeight < 0 ? -static_cast<long long>(header.biHeight) : header.biHeight;
    const long long chromaWidth = 2 * ((width + 1) / 2);
    const long long luma = width * height;
    const long long size = grey ? luma : luma + chromaWidth * ((height + 1) / 2);
    if (width <= 0 || height <= 0 || static_cast<long long>(video->GetDataSize()) != size) {
        return;
    }
    video->SetPlane(0, 0, static_cast<int>(width));
    if (!grey) {
        video->SetPlane(1, static_cast<unsigned long>(luma), static_cast<int>(chromaWidth));
    }
}

CKorPacket* MakePayloadPacket(const SPacketFields& in) {
    const auto size = static_cast<long>(in.m_Data.size());
    if (in.m_Kind == CKorPacket::KIND_AUDIO) {
        CKorAudioPacket* packet = g_AudioPacketSource.NewPacket(
            static_cast<long>(std::max(kAudioCapacity, in.m_Data.size())));
        std::memcpy(packet->GetData(), in.m_Data.data(), in.m_Data.size());
        packet->SetDataSize(in.m_Data.size());
        return packet;
    }
    if (in.m_Kind == CKorPacket::KIND_VIDEO) {
        return g_VideoPacketSource.NewPacket(in.m_Data.data(), size, 0);
    }
    return g_DataPacketSource.NewPacket(in.m_Data.data(), size, 0);
}

CKorPacket* MakePacket(lua_State* L, const SPacketFields& in) {
    CKorPacket* packet = nullptr;
    if (in.m_Kind == CKorPacket::KIND_TEXT) {
        packet = new CKorTextPacket(in.m_Text.c_str(), static_cast<int>(in.m_Schema));
    } else if (in.m_Kind == CKorPacket::KIND_TIMEBASE) {
        auto* timeBase = new CKorTimeBasePacket(static_cast<long>(in.m_Time), in.m_Scale);
        timeBase->SetFlags(static_cast<int>(in.m_Flags));
        packet = timeBase;
    } else {
        packet = MakePayloadPacket(in);
    }
    packet->SetTimeStamp(static_cast<std::uint32_t>(in.m_Ts.value_or(0)));
    packet->SetTimeStampValid(in.m_TsValid.value_or(in.m_Ts.has_value()));
    packet->SetRealTimeStamp(in.m_Rts);
    packet->SetStreamNo(static_cast<int>(in.m_Stream));
    for (const auto& [number, value] : in.m_Attributes) {
        packet->SetAttribute(number, value);
    }
    if (in.m_HasBoxes) {
        auto* boxes = new CKorBoundingBoxesMD;
        for (const SKorBoundingBox& box : in.m_Boxes) {
            boxes->AddBox(box);
        }
        packet->SetMetadataHandler(boxes, true);
    }
    CHostState& state = CHostState::Of(L);
    if (in.m_HasAudioFormat) {
        // The record with its extra bytes behind it, as packets keep it.
        std::string record(reinterpret_cast<const char*>(&in.m_Audio), sizeof(in.m_Audio));
        record += in.m_AudioExtra;
        const long seq =
            in.m_Seq ? static_cast<long>(*in.m_Seq)
                     : state.FormatSeqNumber(record.data(), static_cast<unsigned>(record.size()));
        static_cast<CKorAudioPacket*>(packet)->SetAudioFormat(
            reinterpret_cast<const WAVEFORMATEX*>(record.data()), seq);
    }
    if (in.m_Kind == CKorPacket::KIND_VIDEO) {
        auto* video = static_cast<CKorVideoPacket*>(packet);
        video->SetFrameType(static_cast<int>(in.m_FrameType));
        video->SetLayer(static_cast<int>(in.m_Layer));
        if (in.m_HasVideoFormat) {
            const long seq = in.m_Seq
                                 ? static_cast<long>(*in.m_Seq)
                                 : state.FormatSeqNumber(in.m_Video.data(),
                                                         static_cast<unsigned>(in.m_Video.size()));
            // The record is the header with its set-up data right after it.
            const auto* header = reinterpret_cast<const BITMAPINFOHEADER*>(in.m_Video.data());
            video->SetBitmapFormat(header, seq, 0);
            SetFramePlanes(*header, video);
        }
    }
    return packet;
}

int NewPacket(lua_State* L, SLuaFault& fault) {
    SPacketFields fields;
    std::string error;
    if (!ReadFields(L, fields, &error)) {
        return fault.Set(error);
    }
    CKorPacket* packet = MakePacket(L, fields);
    LuaPushPacket(L, packet);
    packet->Release();
    return 1;
}

SLuaPacket* ToPacket(lua_State* L, int index) {
    return static_cast<SLuaPacket*>(luaL_testudata(L, index, kPacketType));
}

void SetIntegerField(lua_State* L, const char* name, lua_Integer value) {
    lua_pushinteger(L, value);
    lua_setfield(L, -2, name);
}

void PushAudioFormat(lua_State* L, const CKorAudioPacket* packet) {
    const WAVEFORMATEX* format = packet->GetAudioFormat();
    if (!format) {
        lua_pushnil(L);
        return;
    }
    lua_createtable(L, 0, 8);
    SetIntegerField(L, "tag", format->wFormatTag);
    SetIntegerField(L, "channels", format->nChannels);
    SetIntegerField(L, "rate", format->nSamplesPerSec);
    SetIntegerField(L, "avgBytes", format->nAvgBytesPerSec);
    SetIntegerField(L, "blockAlign", format->nBlockAlign);
    SetIntegerField(L, "bits", format->wBitsPerSample);
    SetIntegerField(L, "seq", packet->GetFormatSeqNumber());
    if (format->cbSize > 0) {
        lua_pushlstring(L, reinterpret_cast<const char*>(format + 1), format->cbSize);
        lua_setfield(L, -2, "extra");
    }
}

void PushVideoFormat(lua_State* L, const CKorVideoPacket* packet) {
    const BITMAPINFOHEADER* header = packet->GetBitmapInfo();
    if (!header) {
        lua_pushnil(L);
        return;
    }
    lua_createtable(L, 0, 5);
    SetIntegerField(L, "width", header->biWidth);
    SetIntegerField(L, "height", header->biHeight);
    SetIntegerField(L, "compression", header->biCompression);
    SetIntegerField(L, "bits", header->biBitCount);
    SetIntegerField(L, "seq", packet->GetFormatSeqNumber());
    const CKorVideoFormat* format = packet->GetBitmapFormat();
    if (format->ExtraSize() > 0) {
        lua_pushlstring(L, reinterpret_cast<const char*>(format->ExtraData()),
                        static_cast<size_t>(format->ExtraSize()));
        lua_setfield(L, -2, "extra");
    }
}

void PushAttributes(lua_State* L, const CKorPacket* packet) {
    lua_newtable(L);
    for (int index = 0; index < packet->GetAttributeCount(); ++index) {
        int number = 0;
        int value = 0;
        packet->GetAttributeAt(index, &number, &value);
        lua_pushinteger(L, value);
        lua_rawseti(L, -2, number);
    }
}

// Kind-specific fields; answers false when name is none of them.
bool PushKindField(lua_State* L, CKorPacket* packet, const std::string& name) {
    const int kind = packet->GetKind();
    if (kind == CKorPacket::KIND_VIDEO) {
        auto* video = static_cast<CKorVideoPacket*>(packet);
        if (name == "frameType") {
            lua_pushinteger(L, video->GetFrameType());
        } else if (name == "layer") {
            lua_pushinteger(L, video->GetLayer());
        } else if (name == "format") {
            PushVideoFormat(L, video);
        } else {
            return false;
        }
        return true;
    }
    if (kind == CKorPacket::KIND_AUDIO && name == "format") {
        PushAudioFormat(L, static_cast<CKorAudioPacket*>(packet));
        return true;
    }
    if (kind == CKorPacket::KIND_TEXT) {
        auto* text = static_cast<CKorTextPacket*>(packet);
        if (name == "text") {
            lua_pushstring(L, text->Text().c_str());
        } else if (name == "schema") {
            lua_pushinteger(L, text->GetSchema());
        } else {
            return false;
        }
        return true;
    }
    if (kind == CKorPacket::KIND_TIMEBASE) {
        auto* timeBase = static_cast<CKorTimeBasePacket*>(packet);
        if (name == "time") {
            lua_pushinteger(L, timeBase->Time());
        } else if (name == "scale") {
            lua_pushnumber(L, timeBase->GetScaleFactor());
        } else if (name == "flags") {
            lua_pushinteger(L, timeBase->GetFlags());
        } else {
            return false;
        }
        return true;
    }
    return false;
}

// The "BBX1" boxes as { {left, top, right, bottom, id}, ... }, or nil when there are none.
void PushBoxes(lua_State* L, const CKorPacket* packet) {
    const auto* boxes =
        static_cast<const CKorBoundingBoxesMD*>(packet->FindMetadata(kMetadataBoundingBoxes));
    if (!boxes) {
        lua_pushnil(L);
        return;
    }
    lua_createtable(L, boxes->GetBoxCount(), 0);
    for (int i = 0; i < boxes->GetBoxCount(); ++i) {
        const SKorBoundingBox& box = boxes->GetBox(i);
        lua_createtable(L, 5, 0);
        const lua_Integer values[5] = {box.m_Left, box.m_Top, box.m_Right, box.m_Bottom, box.m_Id};
        for (int j = 0; j < 5; ++j) {
            lua_pushinteger(L, values[j]);
            lua_rawseti(L, -2, j + 1);
        }
        lua_rawseti(L, -2, i + 1);
    }
}

bool PushCommonField(lua_State* L, CKorPacket* packet, const std::string& name) {
    if (name == "kind") {
        const char* kind = KindName(packet->GetKind());
        kind ? static_cast<void>(lua_pushstring(L, kind)) : lua_pushinteger(L, packet->GetKind());
    } else if (name == "ts") {
        lua_pushinteger(L, packet->GetTimeStamp());
    } else if (name == "tsValid") {
        lua_pushboolean(L, packet->IsTimeStampValid());
    } else if (name == "rts") {
        lua_pushnumber(L, packet->GetRealTimeStamp());
    } else if (name == "stream") {
        lua_pushinteger(L, packet->GetStreamNo());
    } else if (name == "attributes") {
        PushAttributes(L, packet);
    } else if (name == "boxes") {
        PushBoxes(L, packet);
    } else if (name == "data") {
        lua_pushlstring(L, reinterpret_cast<const char*>(packet->GetData()),
                        packet->GetData() ? packet->GetDataSize() : 0);
    } else if (name == "size") {
        lua_pushinteger(L, static_cast<lua_Integer>(packet->GetDataSize()));
    } else if (name == "capacity") {
        lua_pushinteger(L, static_cast<lua_Integer>(packet->GetCapacity()));
    } else if (name == "formatSeq") {
        lua_pushinteger(L, packet->GetFormatSeqNumber());
    } else if (name == "refcount") {
        lua_pushinteger(L, static_cast<lua_Integer>(packet->RefCount()));
    } else {
        return false;
    }
    return true;
}

int Index(lua_State* L, SLuaFault& fault) {
    CKorPacket* packet = ToPacket(L, 1)->m_pPacket;
    if (!packet) {
        return fault.Set(kReleased);
    }
    if (lua_type(L, 2) != LUA_TSTRING) {
        return fault.Set("packet fields are named by strings");
    }
    const std::string name = lua_tostring(L, 2);
    if (PushCommonField(L, packet, name) || PushKindField(L, packet, name)) {
        return 1;
    }
    // Fields of other kinds read as nil, so one loop can print any packet.
    static const char* const kOtherKinds[] = {"frameType", "layer", "format", "text",
                                              "schema",    "time",  "scale",  "flags"};
    for (const char* other : kOtherKinds) {
        if (name == other) {
            lua_pushnil(L);
            return 1;
        }
    }
    return fault.Set("a packet has no field '" + name + "'");
}

int ToString(lua_State* L) {
    CKorPacket* packet = ToPacket(L, 1)->m_pPacket;
    if (!packet) {
        lua_pushliteral(L, "packet (released)");
        return 1;
    }
    const char* kind = KindName(packet->GetKind());
    lua_pushfstring(
        L, "packet %s ts=%d%s size=%d", kind ? kind : "?", static_cast<int>(packet->GetTimeStamp()),
        packet->IsTimeStampValid() ? "" : " (invalid)", static_cast<int>(packet->GetDataSize()));
    return 1;
}

int Equal(lua_State* L) {
    SLuaPacket* a = ToPacket(L, 1);
    SLuaPacket* b = ToPacket(L, 2);
    lua_pushboolean(L, a && b && a->m_pPacket && a->m_pPacket == b->m_pPacket);
    return 1;
}

int Collect(lua_State* L) {
    SLuaPacket* self = ToPacket(L, 1);
    if (self && self->m_pPacket) {
        self->m_pPacket->Release();
        self->m_pPacket = nullptr;
    }
    return 0;
}

} // namespace

void LuaPushPacket(lua_State* L, CKorPacket* packet) {
    auto* self = static_cast<SLuaPacket*>(lua_newuserdatauv(L, sizeof(SLuaPacket), 0));
    self->m_pPacket = packet;
    packet->AddRef();
    luaL_setmetatable(L, kPacketType);
}

CKorPacket* LuaToPacket(lua_State* L, int index) {
    SLuaPacket* self = ToPacket(L, index);
    return self ? self->m_pPacket : nullptr;
}

bool LuaReadAudioFormat(lua_State* L, int index, WAVEFORMATEX* format, std::string* error,
                        std::string* extra) {
    CLuaFields fields(L, index, "audio format");
    if (extra) {
        fields.Allow({"tag", "channels", "rate", "avgBytes", "blockAlign", "bits", "seq", "extra"});
    } else {
        fields.Allow({"tag", "channels", "rate", "avgBytes", "blockAlign", "bits", "seq"});
    }
    std::string bytes;
    if (extra && fields.String("extra", &bytes) &&
        bytes.size() > static_cast<size_t>(CKorAudioPacket::kMaxFormatExtra)) {
        fields.Fail("extra holds at most " + std::to_string(CKorAudioPacket::kMaxFormatExtra) +
                    " bytes");
    }
    long long tag = kTagPcm, channels = 1, rate = 0, bits = 0, blockAlign = 0, avgBytes = 0;
    fields.Integer("tag", &tag);
    fields.Integer("channels", &channels);
    if (!fields.Integer("rate", &rate) && fields.Ok()) {
        fields.Fail("rate is required");
    }
    if (!fields.Integer("bits", &bits)) {
        bits = (tag == kTagALaw || tag == kTagMuLaw) ? 8 : 16;
    }
    if (!fields.Integer("blockAlign", &blockAlign)) {
        blockAlign = std::max<long long>(1, channels * bits / 8);
    }
    if (!fields.Integer("avgBytes", &avgBytes)) {
        avgBytes = rate * blockAlign;
    }
    if (fields.Ok() && (tag < 0 || tag > 0xFFFF || channels < 1 || channels > 0xFFFF || rate < 1 ||
                        rate > 0xFFFFFFFFLL || blockAlign < 1 || blockAlign > 0xFFFF || bits < 0 ||
                        bits > 0xFFFF || avgBytes < 0 || avgBytes > 0xFFFFFFFFLL)) {
        fields.Fail("a field is out of range (channels, rate and blockAlign must be positive)");
    }
    if (!fields.Ok()) {
        *error = fields.Error();
        return false;
    }
    *format = WAVEFORMATEX{static_cast<WORD>(tag),         static_cast<WORD>(channels),
                           static_cast<DWORD>(rate),       static_cast<DWORD>(avgBytes),
                           static_cast<WORD>(blockAlign),  static_cast<WORD>(bits),
                           static_cast<WORD>(bytes.size())};
    if (extra) {
        *extra = std::move(bytes);
    }
    return true;
}

bool LuaIsPacket(lua_State* L, int index) {
    return ToPacket(L, index) != nullptr;
}

void LuaRegisterPacketType(lua_State* L) {
    luaL_newmetatable(L, kPacketType);
    // getmetatable answers the type name, so a script cannot reach the finaliser.
    lua_pushstring(L, kPacketType);
    lua_setfield(L, -2, "__metatable");
    const luaL_Reg methods[] = {{"__index", &LuaProtected<Index>},
                                {"__tostring", &ToString},
                                {"__eq", &Equal},
                                {"__gc", &Collect},
                                {nullptr, nullptr}};
    luaL_setfuncs(L, methods, 0);
    lua_pop(L, 1);
}

int LuaNewPacket(lua_State* L) {
    return LuaProtected<NewPacket>(L);
}
