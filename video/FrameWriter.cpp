#include "video/FrameWriter.h"

#include "entry/Registry.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/PropertyMap.h"
#include "framework/kor/BoundingBoxesMD.h"
#include "framework/kor/Packet.h"
#include "video/VideoFrame.h"
#include "video/core/Drawing.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>
#include <tuple>

namespace {

constexpr SZorColour kSheetBackground{32, 32, 32};
constexpr SZorColour kCaptionBackground{0, 0, 0};
constexpr SZorColour kCaptionText{255, 255, 255};

// Expands a snapshot pattern: "%%" is a percent sign, the one "%d", "%5d" or "%05d" is the
// number. Answers false for any other conversion, or for none or several.
bool ExpandPattern(const std::string& pattern, long number, std::string* out) {
    std::string result;
    int conversions = 0;
    for (size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] != '%') {
            result += pattern[i];
            continue;
        }
        if (i + 1 < pattern.size() && pattern[i + 1] == '%') {
            result += '%';
            ++i;
            continue;
        }
        size_t j = i + 1;
        const bool zeros = j < pattern.size() && pattern[j] == '0';
        int width = 0;
        while (j < pattern.size() && std::isdigit(static_cast<unsigned char>(pattern[j])) &&
               width < 100) {
            width = width * 10 + (pattern[j] - '0');
            ++j;
        }
        if (j >= pattern.size() || pattern[j] != 'd' || width >= 100) {
            return false;
        }
        std::string digits = std::to_string(number);
        if (static_cast<int>(digits.size()) < width) {
            digits.insert(0, static_cast<size_t>(width) - digits.size(), zeros ? '0' : ' ');
        }
        result += digits;
        ++conversions;
        i = j;
    }
    if (out) {
        *out = result;
    }
    return conversions == 1;
}

// The size of a w x h frame shown width wide (0: as it is), even when asked.
std::pair<int, int> OutputSize(int w, int h, int width, bool even) {
    int outWidth = width > 0 ? width : w;
    int outHeight =
        width > 0 ? static_cast<int>(std::lround(static_cast<double>(h) * width / w)) : h;
    if (even) {
        outWidth &= ~1;
        outHeight &= ~1;
    }
    return {std::max(outWidth, even ? 2 : 1), std::max(outHeight, even ? 2 : 1)};
}

} // namespace

CZorFrameWriter::CZorFrameWriter(const char* name) : CKorModule(name) {}

CZorFrameWriter::~CZorFrameWriter() {
    Close();
    if (m_pLast) {
        m_pLast->Release();
    }
    if (m_pPending) {
        m_pPending->Release();
    }
}

bool CZorFrameWriter::IsSnapshotPattern(const std::string& pattern) {
    return ExpandPattern(pattern, 0, nullptr);
}

void CZorFrameWriter::Report(const char* method, const std::string& error) {
    m_Error = error;
    BelDump("CZorFrameWriter::%s -> %s\n", method, error.c_str());
}

void CZorFrameWriter::Overlay(const CKorVideoPacket* frame, CZorRgbPicture* picture, bool caption) {
    const BITMAPINFOHEADER* header = frame->GetBitmapInfo();
    const double sx = static_cast<double>(picture->Width()) / header->biWidth;
    const double sy = static_cast<double>(picture->Height()) / std::abs(header->biHeight);
    const SZorRgbImage image = picture->Image();
    const int unit = std::max(1, picture->Width() / 320);
    if (m_Settings.m_DrawBoxes) {
        const auto* boxes =
            static_cast<const CKorBoundingBoxesMD*>(frame->FindMetadata(kMetadataBoundingBoxes));
        for (int i = 0; boxes && i < boxes->GetBoxCount(); ++i) {
            const SKorBoundingBox& box = boxes->GetBox(i);
            ZorDrawBox(image, static_cast<int>(std::lround(box.m_Left * sx)),
                       static_cast<int>(std::lround(box.m_Top * sy)),
                       static_cast<int>(std::lround(box.m_Right * sx)),
                       static_cast<int>(std::lround(box.m_Bottom * sy)), ZorBoxColour(box.m_Id),
                       unit);
        }
    }
    if (m_Settings.m_DrawCounting) {
        m_Counting.Draw(*frame, image, sx, sy, unit, caption ? ZorTextHeight(unit) + 4 * unit : 0);
    }
    if (caption) {
        std::string text = ZorTimeCaption(frame->GetTimeStamp());
        int level = 0;
        if (frame->GetAttribute(1, &level)) {
            text += " L=" + std::to_string(level);
        }
        const int width = ZorTextWidth(text, unit) + 4 * unit;
        ZorFillRect(image, 0, 0, width, ZorTextHeight(unit) + 4 * unit, kCaptionBackground);
        ZorDrawText(image, 2 * unit, 2 * unit, text, kCaptionText, unit);
    }
}

bool CZorFrameWriter::Render(CKorVideoPacket* frame, int width, int height,
                             CZorRgbPicture* picture) {
    if (!m_ToRgb.Convert(frame, width, height, picture)) {
        return false;
    }
    Overlay(frame, picture, m_Settings.m_DrawTime);
    return true;
}

void CZorFrameWriter::Handle(CKorVideoPacket* frame) {
    SBeluiBitmap luma;
    if (!CZorVideoFrame::GetPlanes(frame, &luma, nullptr)) {
        return;
    }
    ++m_Frames;
    if (m_Settings.m_DrawCounting) {
        m_Counting.Observe(*frame);
    }
    frame->AddRef();
    if (m_pLast) {
        m_pLast->Release();
    }
    m_pLast = frame;

    const long time = frame->GetTimeStamp();
    bool rendered = false; // m_Picture holds this frame at the snapshot size
    const bool snapshot =
        !m_Settings.m_Snapshots.empty() && !m_SnapshotFailed &&
        (m_SnapshotDue || time < m_NextSnapshotTime - m_Settings.m_SnapshotInterval ||
         time >= m_NextSnapshotTime);
    if (snapshot) {
        const auto [w, h] = OutputSize(luma.m_Width, luma.m_Height, m_Settings.m_Width, false);
        std::string file;
        ExpandPattern(m_Settings.m_Snapshots, m_Snapshots + 1, &file);
        std::string error;
        rendered = Render(frame, w, h, &m_Picture);
        if (rendered && CZorPngFile::Write(file, m_Picture.Image(), &error)) {
            ++m_Snapshots;
            m_LastFile = file;
        } else {
            m_SnapshotFailed = true;
            Report("Snapshot", error.empty() ? file + ": cannot render the frame" : error);
        }
        m_SnapshotDue = false;
        m_NextSnapshotTime = time + static_cast<long>(m_Settings.m_SnapshotInterval);
    }

    if (!m_Settings.m_Video.empty() && !m_VideoFailed) {
        std::string error;
        if (!m_Video.IsOpen()) {
            std::tie(m_VideoWidth, m_VideoHeight) =
                OutputSize(luma.m_Width, luma.m_Height, m_Settings.m_Width, true);
            m_VideoFailed = !m_Video.Open(m_Settings.m_Video, m_VideoWidth, m_VideoHeight,
                                          m_Settings.m_VideoEncoder, &error);
        }
        if (!m_VideoFailed) {
            // After a size change the file keeps its size: the picture is scaled to it.
            const bool reuse = rendered && m_Picture.Width() == m_VideoWidth &&
                               m_Picture.Height() == m_VideoHeight;
            m_VideoFailed = !(reuse || Render(frame, m_VideoWidth, m_VideoHeight, &m_Picture)) ||
                            !m_Video.Write(m_Picture.Image(), time, &error);
        }
        if (m_VideoFailed) {
            Report("WriteVideo", error.empty() ? m_Settings.m_Video + ": cannot write" : error);
        }
    }

    if (!m_Settings.m_ContactSheet.empty() && !m_pPicker) {
        m_pPicker = std::make_unique<CZorThumbnailPicker<SThumbnail>>(m_Settings.m_SheetCount);
    }
    if (m_pPicker && m_pPicker->Offer()) {
        SThumbnail thumbnail;
        const auto [w, h] = OutputSize(luma.m_Width, luma.m_Height, m_Settings.m_ThumbWidth, false);
        if (m_ToRgb.Convert(frame, w, h, &thumbnail.m_Picture)) {
            Overlay(frame, &thumbnail.m_Picture, false);
            thumbnail.m_Time = time;
            m_pPicker->Keep(std::move(thumbnail));
        }
    }
}

bool CZorFrameWriter::WriteSheet() {
    std::vector<SThumbnail> thumbnails = m_pPicker->Take();
    if (thumbnails.empty()) {
        Report("Close", m_Settings.m_ContactSheet + ": no frames for the contact sheet");
        return false;
    }
    int thumbHeight = 0;
    for (const SThumbnail& thumbnail : thumbnails) {
        thumbHeight = std::max(thumbHeight, thumbnail.m_Picture.Height());
    }
    const SZorSheetLayout layout =
        ZorSheetLayout(static_cast<int>(thumbnails.size()), m_Settings.m_SheetColumns,
                       thumbnails.front().m_Picture.Width(), thumbHeight);
    CZorRgbPicture sheet(layout.m_Width, layout.m_Height);
    const SZorRgbImage image = sheet.Image();
    ZorFillRect(image, 0, 0, layout.m_Width, layout.m_Height, kSheetBackground);
    for (size_t i = 0; i < thumbnails.size(); ++i) {
        const auto [x, y] = layout.Cell(static_cast<int>(i));
        SZorRgbImage thumb = thumbnails[i].m_Picture.Image();
        const int width = std::min(thumb.m_Width, layout.m_CellWidth);
        for (int row = 0; row < thumb.m_Height; ++row) {
            std::memcpy(image.Pixel(x, y + row), thumb.Pixel(0, row),
                        3 * static_cast<size_t>(width));
        }
        ZorDrawText(image, x, y + thumbHeight + layout.m_Margin / 2,
                    ZorTimeCaption(thumbnails[i].m_Time), kCaptionText, layout.m_CaptionScale);
    }
    std::string error;
    if (!CZorPngFile::Write(m_Settings.m_ContactSheet, image, &error)) {
        Report("Close", error);
        return false;
    }
    m_LastFile = m_Settings.m_ContactSheet;
    return true;
}

bool CZorFrameWriter::Close() {
    bool ok = true;
    if (m_Video.IsOpen()) {
        std::string error;
        if (!m_Video.Close(&error)) {
            Report("Close", error);
            ok = false;
        } else {
            m_LastFile = m_Settings.m_Video;
        }
    }
    ok = ok && !m_VideoFailed && !m_SnapshotFailed;
    if (m_pPicker) {
        ok = WriteSheet() && ok;
    }
    m_pPicker.reset();
    Rearm();
    return ok;
}

void CZorFrameWriter::Rearm() {
    m_VideoFailed = false;
    m_SnapshotFailed = false;
    m_SnapshotDue = true;
}

bool CZorFrameWriter::Snapshot(const std::string& file) {
    if (!m_pLast) {
        m_Error = file + ": no frame yet";
        return false;
    }
    SBeluiBitmap luma;
    CZorVideoFrame::GetPlanes(m_pLast, &luma, nullptr);
    const auto [w, h] = OutputSize(luma.m_Width, luma.m_Height, m_Settings.m_Width, false);
    std::string error;
    CZorRgbPicture picture;
    if (!Render(m_pLast, w, h, &picture) || !CZorPngFile::Write(file, picture.Image(), &error)) {
        Report("Snapshot", error.empty() ? file + ": cannot render the frame" : error);
        return false;
    }
    m_LastFile = file;
    return true;
}

int CZorFrameWriter::Receive(CKorPacket* packet) {
    if (m_InRecv) {
        BelDisplayAssert("!m_InRecv", __FILE__, __LINE__);
        return 0;
    }
    if (m_pPending) {
        if (!DownStreamModule()->Receive(m_pPending)) {
            return 0;
        }
        m_pPending = nullptr;
    }
    m_InRecv = 1;
    if (packet->GetKind() == CKorPacket::KIND_VIDEO) {
        auto* video = static_cast<CKorVideoPacket*>(packet);
        if (CZorVideoFrame::IsFrame(video)) {
            Handle(video);
        } else {
            if (!video->IsTimeStampValid()) {
                m_Decoder.Drain();
            }
            m_Decoder.SendPacket(video);
        }
    } else if (packet->GetKind() == CKorPacket::KIND_TIMEBASE &&
               (static_cast<CKorTimeBasePacket*>(packet)->GetFlags() &
                CKorTimeBasePacket::FLAG_END_OF_SEQUENCE) != 0) {
        m_Decoder.Drain();
    }
    while (CKorVideoPacket* frame = m_Decoder.TakeFrame()) {
        Handle(frame);
        frame->Release();
    }
    if (DownStreamModule()->IsNull()) {
        packet->Release(); // the display ends its chain: nothing is missing after it
    } else if (!DownStreamModule()->Receive(packet)) {
        m_pPending = packet;
    }
    m_InRecv = 0;
    return 1;
}

void CZorFrameWriter::Poll() {
    if (m_pPending) {
        if (!DownStreamModule()->Receive(m_pPending)) {
            return;
        }
        m_pPending = nullptr;
    }
    CKorModule::Poll();
}

void CZorFrameWriter::Flush() {
    if (m_pPending) {
        m_pPending->Release();
        m_pPending = nullptr;
    }
    m_Decoder.NewSequence();
    CKorModule::Flush();
}

// ---------------------------------------------------------------------------------------------

CVideoDisplayCom::CVideoDisplayCom(const char* dataPath)
    : CKor2PinComponent("VideoDisplay"), m_pOwned(std::make_unique<CZorFrameWriter>()),
      m_pModule(m_pOwned.get()) {
    ConnectPath(dataPath);
}

CVideoDisplayCom::~CVideoDisplayCom() = default;

CKorModule* CVideoDisplayCom::CreateContext(const char* path) {
    return SingleContext(path, m_pOwned);
}

const CJokPropertyMap<CVideoDisplayCom>& CVideoDisplayCom::PropertyMap() {
    using C = CVideoDisplayCom;
    static const CJokPropertyMap<C> map = [] {
        CJokPropertyMap<C> m;
        m.AddNotifiedString("snapshots", &C::SnapshotsHandler,
                            "&CVideoDisplayCom::SnapshotsHandler");
        m.AddNotifiedDouble("snapshotInterval", &C::SnapshotIntervalHandler,
                            "&CVideoDisplayCom::SnapshotIntervalHandler");
        m.AddNotifiedString("video", &C::VideoHandler, "&CVideoDisplayCom::VideoHandler");
        m.AddNotifiedString("videoEncoder", &C::VideoEncoderHandler,
                            "&CVideoDisplayCom::VideoEncoderHandler");
        m.AddNotifiedString("contactSheet", &C::ContactSheetHandler,
                            "&CVideoDisplayCom::ContactSheetHandler");
        m.AddNotifiedDouble("sheetCount", &C::SheetCountHandler,
                            "&CVideoDisplayCom::SheetCountHandler");
        m.AddNotifiedDouble("sheetColumns", &C::SheetColumnsHandler,
                            "&CVideoDisplayCom::SheetColumnsHandler");
        m.AddNotifiedDouble("thumbWidth", &C::ThumbWidthHandler,
                            "&CVideoDisplayCom::ThumbWidthHandler");
        m.AddNotifiedDouble("width", &C::WidthHandler, "&CVideoDisplayCom::WidthHandler");
        m.AddNotifiedBoolean("drawBoxes", &C::DrawBoxesHandler,
                             "&CVideoDisplayCom::DrawBoxesHandler");
        m.AddNotifiedBoolean("drawTime", &C::DrawTimeHandler, "&CVideoDisplayCom::DrawTimeHandler");
        m.AddNotifiedBoolean("drawCounting", &C::DrawCountingHandler,
                             "&CVideoDisplayCom::DrawCountingHandler");
        m.AddNotifiedDouble("frames", &C::FramesHandler, "&CVideoDisplayCom::FramesHandler", 1);
        m.AddNotifiedDouble("snapshotsWritten", &C::SnapshotsWrittenHandler,
                            "&CVideoDisplayCom::SnapshotsWrittenHandler", 1);
        m.AddNotifiedDouble("videoFrames", &C::VideoFramesHandler,
                            "&CVideoDisplayCom::VideoFramesHandler", 1);
        m.AddNotifiedString("lastFile", &C::LastFileHandler, "&CVideoDisplayCom::LastFileHandler",
                            1);
        m.AddNotifiedString("error", &C::ErrorHandler, "&CVideoDisplayCom::ErrorHandler", 1);
        m.AddFunction("Close", &C::Close, "&CVideoDisplayCom::Close");
        m.AddFunction("Snapshot", &C::Snapshot, "&CVideoDisplayCom::Snapshot");
        return m;
    }();
    return map;
}

CJokGenericData* CVideoDisplayCom::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CKor2PinComponent::GetProperty(name, flags);
}

int CVideoDisplayCom::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CKor2PinComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CVideoDisplayCom::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKor2PinComponent::GetPropertyEnumerator());
}

namespace {

// A string setting: read, or written (and the failed outputs tried again), when check allows.
template <class Check>
int StringSetting(CZorFrameWriter* module, std::string* setting, CBelString* value, int set,
                  Check check) {
    if (!set) {
        *value = setting->c_str();
        return 1;
    }
    if (!check(std::string(value->c_str()))) {
        return 0;
    }
    *setting = value->c_str();
    module->Rearm();
    return 1;
}

// A whole-number setting within [low, high].
int WholeSetting(int* setting, double* value, int set, int low, int high) {
    if (!set) {
        *value = *setting;
        return 1;
    }
    if (!(*value >= low && *value <= high) || std::floor(*value) != *value) {
        return 0;
    }
    *setting = static_cast<int>(*value);
    return 1;
}

int Statistic(double* value, int set, double statistic) {
    if (set) {
        return 0;
    }
    *value = statistic;
    return 1;
}

} // namespace

int CVideoDisplayCom::SnapshotsHandler(CBelString* value, int set) {
    return StringSetting(m_pModule, &m_pModule->Settings().m_Snapshots, value, set,
                         [](const std::string& pattern) {
                             return pattern.empty() || CZorFrameWriter::IsSnapshotPattern(pattern);
                         });
}

int CVideoDisplayCom::SnapshotIntervalHandler(double* value, int set) {
    double& interval = m_pModule->Settings().m_SnapshotInterval;
    if (!set) {
        *value = interval;
        return 1;
    }
    if (!(*value >= 0 && *value <= 86400000)) {
        return 0; // milliseconds, up to a day
    }
    interval = *value;
    return 1;
}

int CVideoDisplayCom::VideoHandler(CBelString* value, int set) {
    return StringSetting(m_pModule, &m_pModule->Settings().m_Video, value, set,
                         [](const std::string&) { return true; });
}

int CVideoDisplayCom::VideoEncoderHandler(CBelString* value, int set) {
    return StringSetting(m_pModule, &m_pModule->Settings().m_VideoEncoder, value, set,
                         [](const std::string&) { return true; });
}

int CVideoDisplayCom::ContactSheetHandler(CBelString* value, int set) {
    return StringSetting(m_pModule, &m_pModule->Settings().m_ContactSheet, value, set,
                         [](const std::string&) { return true; });
}

int CVideoDisplayCom::SheetCountHandler(double* value, int set) {
    return WholeSetting(&m_pModule->Settings().m_SheetCount, value, set, 1, 400);
}

int CVideoDisplayCom::SheetColumnsHandler(double* value, int set) {
    return WholeSetting(&m_pModule->Settings().m_SheetColumns, value, set, 1, 40);
}

int CVideoDisplayCom::ThumbWidthHandler(double* value, int set) {
    return WholeSetting(&m_pModule->Settings().m_ThumbWidth, value, set, 16, 1920);
}

int CVideoDisplayCom::WidthHandler(double* value, int set) {
    int& width = m_pModule->Settings().m_Width;
    if (set && *value != 0 && !(*value >= 16 && *value <= CZorVideoFrame::kMaxSide)) {
        return 0; // 0: the frame's own width
    }
    return WholeSetting(&width, value, set, 0, CZorVideoFrame::kMaxSide);
}

int CVideoDisplayCom::DrawBoxesHandler(int* value, int set) {
    bool& draw = m_pModule->Settings().m_DrawBoxes;
    if (set) {
        draw = *value != 0;
    } else {
        *value = draw ? 1 : 0;
    }
    return 1;
}

int CVideoDisplayCom::DrawTimeHandler(int* value, int set) {
    bool& draw = m_pModule->Settings().m_DrawTime;
    if (set) {
        draw = *value != 0;
    } else {
        *value = draw ? 1 : 0;
    }
    return 1;
}

int CVideoDisplayCom::DrawCountingHandler(int* value, int set) {
    bool& draw = m_pModule->Settings().m_DrawCounting;
    if (set) {
        draw = *value != 0;
    } else {
        *value = draw ? 1 : 0;
    }
    return 1;
}

int CVideoDisplayCom::FramesHandler(double* value, int set) {
    return Statistic(value, set, static_cast<double>(m_pModule->FramesSeen()));
}

int CVideoDisplayCom::SnapshotsWrittenHandler(double* value, int set) {
    return Statistic(value, set, static_cast<double>(m_pModule->SnapshotsWritten()));
}

int CVideoDisplayCom::VideoFramesHandler(double* value, int set) {
    return Statistic(value, set, static_cast<double>(m_pModule->VideoFrames()));
}

int CVideoDisplayCom::LastFileHandler(CBelString* value, int set) {
    if (set) {
        return 0;
    }
    *value = m_pModule->LastFile().c_str();
    return 1;
}

int CVideoDisplayCom::ErrorHandler(CBelString* value, int set) {
    if (set) {
        return 0;
    }
    *value = m_pModule->Error().c_str();
    return 1;
}

int CVideoDisplayCom::Close(CJokCommandContext* context) {
    if (!context->CanProceed(0)) {
        return 1;
    }
    context->SetReturnValueNoRef(CJokGdBoolean::Allocate(m_pModule->Close() ? 1 : 0));
    return 1;
}

int CVideoDisplayCom::Snapshot(CJokCommandContext* context) {
    CBelString file;
    context->GetParam("file", &file, 0);
    if (!context->CanProceed(0)) {
        return 1;
    }
    context->SetReturnValueNoRef(
        CJokGdBoolean::Allocate(m_pModule->Snapshot(file.c_str()) ? 1 : 0));
    return 1;
}

int CreateVideoDisplay(CJokCommandContext* context) {
    return ZorCreateWithDataPath<CVideoDisplayCom>(context);
}
