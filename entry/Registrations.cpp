// The module's 64 registrations, in their construction order (the registration list, and so
// the module object's function list, runs in the reverse order). They live in one table rather
// than at the bottom of each component's source so that this order holds whatever the link
// order of the object files.
//
// A row whose component this build does not contain registers a function that reports
// "<creation name>: not available in this build"; each component replaces its row with its real
// creation function.
#include "analytics/counting/ExitBlockingFilter.h"
#include "analytics/counting/LODFilter.h"
#include "analytics/counting/PCAFilter.h"
#include "analytics/counting/PeopleCountFilter.h"
#include "analytics/motion/GVMDFilter.h"
#include "analytics/motion/VMDFilter.h"
#include "analytics/tracking/ObjectTracking.h"
#include "analytics/tracking/VideoProcessingModule.h"
#include "audio/AudioAnalyzer.h"
#include "audio/AudioAnalyzer2.h"
#include "audio/AudioDecoderCom.h"
#include "audio/AudioEncoderCom.h"
#include "audio/AudioPlayer.h"
#include "audio/AudioSampleMixer.h"
#include "audio/AudioSource.h"
#include "entry/Registry.h"
#include "filters/AdvancedPacketFilter.h"
#include "filters/AttributeSetter.h"
#include "filters/StreamFilter.h"
#include "routing/Joiner.h"
#include "routing/Splitter.h"
#include "routing/Synch.h"
#include "storage/MetaDataReader.h"
#include "storage/MetaDataWriter.h"
#include "video/FrameWriter.h"
#include "video/MotionLevelStamper.h"
#include "video/PacketSource.h"
#include "video/VideoDecompressorCom.h"

namespace {

// clang-format off
zorCJokHlpAutoRegFunction s_Reg01("CreateAdvancedPacketFilter", "&CreateAdvancedPacketFilter", &CreateAdvancedPacketFilter);
zorCJokHlpAutoRegFunction s_Reg02("CreateAttributeSetter", "&CreateAttributeSetter", &CreateAttributeSetter);
zorCJokHlpAutoRegComponentFactory<CAudioAnalyzer2Com> s_Reg03("CreateAudioAnalyzer2", "&CAudioAnalyzer2Com");
zorCJokHlpAutoRegComponentFactory<CAudioAnalyzerCom> s_Reg04("CreateAudioAnalyzer", "&CAudioAnalyzerCom");
zorCJokHlpAutoRegFunction s_Reg05("CreateAudioCodec", "&CAudioCodecCom", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreateAudioCodec"); });
zorCJokHlpAutoRegFunction s_Reg06("CreateAudioConverter", "&CAudioConverterCom", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreateAudioConverter"); });
zorCJokHlpAutoRegComponentFactory<CAudioDecoderCom> s_Reg07("CreateAudioDecoder", "&CAudioDecoderCom");
zorCJokHlpAutoRegComponentFactory<CAudioEncoderCom> s_Reg08("CreateAudioEncoder", "&CAudioEncoderCom");
zorCJokHlpAutoRegFunction s_Reg09("CreateAudioFmtChoose", "&CAudioFmtChooseCom", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreateAudioFmtChoose"); });
zorCJokHlpAutoRegComponentFactory<CAudioPlayerCom> s_Reg10("CreateAudioPlayer", "&CAudioPlayerCom");
zorCJokHlpAutoRegFunction s_Reg11("CreateAudioSampleMixer", "&CreateAudioSampleMixer", &CreateAudioSampleMixer);
zorCJokHlpAutoRegComponentFactory<CAudioSrcCom> s_Reg12("CreateAudioSrc", "&CAudioSrcCom");
zorCJokHlpAutoRegFunction s_Reg13("IsAudioFullDuplex", "&IsAudioFullDuplexHandler", &IsAudioFullDuplexHandler);
zorCJokHlpAutoRegFunction s_Reg14("CreateDataBuffer", "&CreateDataBuffer", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreateDataBuffer"); });
zorCJokHlpAutoRegFunction s_Reg15("CreateDebugPath", "&CreateDebugPath", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreateDebugPath"); });
zorCJokHlpAutoRegFunction s_Reg16("CreateDelayedFeed", "&CDelayedFeedCom", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreateDelayedFeed"); });
zorCJokHlpAutoRegFunction s_Reg17("CreateFrameDataFilter", "&CreateFrameDataFilter", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreateFrameDataFilter"); });
zorCJokHlpAutoRegFunction s_Reg18("CreateGapDetector", "&CreateGapDetector", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreateGapDetector"); });
zorCJokHlpAutoRegFunction s_Reg19("CreateGapDetector2", "&CreateGapDetector2", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreateGapDetector2"); });
zorCJokHlpAutoRegFunction s_Reg20("CreateGPSFilter", "&CreateGPSFilter", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreateGPSFilter"); });
zorCJokHlpAutoRegComponentFactory<CZorGVMDFilter> s_Reg21("CreateGVMDFilter", "&CZorGVMDFilter");
zorCJokHlpAutoRegComponentFactory<CZorArchiveGVMDFilter> s_Reg22("CreateArchiveGVMDFilter", "&CZorArchiveGVMDFilter");
zorCJokHlpAutoRegFunction s_Reg23("CreateImageDecoder", "&CImageDecoder", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreateImageDecoder"); });
zorCJokHlpAutoRegFunction s_Reg24("CreateImageFilter", "&CreateImageFilter", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreateImageFilter"); });
zorCJokHlpAutoRegFunction s_Reg25("CreateJoiner", "&CreateJoiner", &CreateJoiner);
zorCJokHlpAutoRegComponentFactory<CZorLODFilter> s_Reg26("CreateLODFilter", "&CZorLODFilter");
zorCJokHlpAutoRegFunction s_Reg27("CreateBuffer", "&CreateBuffer", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreateBuffer"); });
zorCJokHlpAutoRegFunction s_Reg28("CreateLossyBuffer", "&CreateLossyBuffer", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreateLossyBuffer"); });
zorCJokHlpAutoRegFunction s_Reg29("CreateMetaDataWriter", "&CreateMetaDataWriter", &CreateMetaDataWriter);
zorCJokHlpAutoRegFunction s_Reg30("CreateMetaDataReader", "&CreateMetaDataReader", &CreateMetaDataReader);
zorCJokHlpAutoRegFunction s_Reg31("CreateMultiplexer", "&CreateMultiplexer", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreateMultiplexer"); });
zorCJokHlpAutoRegFunction s_Reg32("CreatePeopleCountFilter", "&CreatePeopleCountFilter", &CreatePeopleCountFilter);
zorCJokHlpAutoRegFunction s_Reg33("CreateExitBlockingFilter", "&CreateExitBlockingFilter", &CreateExitBlockingFilter);
zorCJokHlpAutoRegComponentFactory<CZorObjectTrackingModuleCom> s_Reg34("CreateObjectTrackingModule", "&CZorObjectTrackingModuleCom");
zorCJokHlpAutoRegFunction s_Reg35("CreatePacketChainer", "&CreatePacketChainer", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreatePacketChainer"); });
zorCJokHlpAutoRegFunction s_Reg36("CreatePacketDataReader", "&CreatePacketDataReader", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreatePacketDataReader"); });
zorCJokHlpAutoRegFunction s_Reg37("CreatePacketDataWriter", "&CreatePacketDataWriter", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreatePacketDataWriter"); });
zorCJokHlpAutoRegFunction s_Reg38("CreatePacketExpander", "&CreatePacketExpander", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreatePacketExpander"); });
zorCJokHlpAutoRegFunction s_Reg39("CreatePacketFilter", "&CreatePacketFilter", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreatePacketFilter"); });
zorCJokHlpAutoRegFunction s_Reg40("CreatePacketHolder", "&CreatePacketHolder", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreatePacketHolder"); });
zorCJokHlpAutoRegFunction s_Reg41("CreatePacketObserver", "&CPacketObserverCom", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreatePacketObserver"); });
zorCJokHlpAutoRegComponentFactory<CZorPCAFilterCom> s_Reg42("CreatePCAFilter", "&CZorPCAFilterCom");
zorCJokHlpAutoRegFunction s_Reg43("CreateRate", "&CreateRate", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreateRate"); });
zorCJokHlpAutoRegFunction s_Reg44("CreateRealTimeAdjuster", "&CreateRealTimeAdjuster", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreateRealTimeAdjuster"); });
zorCJokHlpAutoRegFunction s_Reg45("CreateResynch", "&CreateResynch", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreateResynch"); });
zorCJokHlpAutoRegFunction s_Reg46("CreateSortAndSend", "&CSortCom", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreateSortAndSend"); });
zorCJokHlpAutoRegFunction s_Reg47("CreateSplitter", "&CreateSplitter", &CreateSplitter);
zorCJokHlpAutoRegFunction s_Reg48("CreateStatsComponent", "&CStatsComp", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreateStatsComponent"); });
zorCJokHlpAutoRegFunction s_Reg49("CreateStreamFilter", "&CreateStreamFilter", &CreateStreamFilter);
zorCJokHlpAutoRegFunction s_Reg50("CreateSynch", "&CreateSynch", &CreateSynch);
zorCJokHlpAutoRegFunction s_Reg51("CreateTextFilter", "&CreateTextFilter", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreateTextFilter"); });
zorCJokHlpAutoRegFunction s_Reg52("CreateTimestampMixer", "&CreateTimestampMixer", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreateTimestampMixer"); });
zorCJokHlpAutoRegFunction s_Reg53("CreateUpdateTimeFilter", "&CUpdateTimeFilter", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreateUpdateTimeFilter"); });
zorCJokHlpAutoRegFunction s_Reg54("CreateVideoCompressor", "&CVideoCompressorCom", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreateVideoCompressor"); });
zorCJokHlpAutoRegFunction s_Reg55("CreateVideoDecompressor", "&CreateVideoDecompressor", &CreateVideoDecompressor);
zorCJokHlpAutoRegComponentFactory<CVideoFilterCom> s_Reg56("CreateVideoFilter", "&CVideoFilterCom");
zorCJokHlpAutoRegComponentFactory<CZorVideoProcessingModuleCom> s_Reg57("CreateGenericVideoProcessingModule", "&CZorVideoProcessingModuleCom");
zorCJokHlpAutoRegFunction s_Reg58("CreateVideoTranscoder", "&CreateVideoTranscoder", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreateVideoTranscoder"); });
zorCJokHlpAutoRegFunction s_Reg59("CreateVideoTranscoderWMV", "&CreateVideoTranscoderWMV", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreateVideoTranscoderWMV"); });
zorCJokHlpAutoRegComponentFactory<CVMDFilter> s_Reg60("CreateVMDFilter", "&CVMDFilter");
zorCJokHlpAutoRegComponentFactory<CArchiveVMDFilter> s_Reg61("CreateArchiveVMDFilter", "&CArchiveVMDFilter");
zorCJokHlpAutoRegFunction s_Reg62("CreateVideoDisplay", "&CreateVideoDisplay", &CreateVideoDisplay);
zorCJokHlpAutoRegFunction s_Reg63("CreateVideoDisplayDX", "&CreateVideoDisplay", [](CJokCommandContext* c) { return ZorNotAvailable(c, "CreateVideoDisplayDX"); });
zorCJokHlpAutoRegFunction s_Reg64("CreatePacketSource", "&CreatePacketSource", &CreatePacketSource);
// clang-format on

} // namespace
