// Generic motion detection: whether the boxes an upstream analyser reports on a frame ("BBX1"
// metadata) overlap a mask of rectangles by at least a minimum area, debounced by a short and a
// long delay (CGvmdStateMachine). Starts and ends go to the virtual SignalCollision, which the
// live and archive components override.
//
// The minimum overlap comes from the sensitivity s in [0, 1]: trunc((1 - s) x 84480) pixels, at
// least 1. 84480 is the area of a 352 x 240 frame, the frame size the detector's coordinates
// are in: sensitivity 1 needs one pixel, sensitivity 0 the whole frame's area.
//
// The mask is set in one of two forms, both checked before anything changes:
//   packed      "M1:l,t,r,b;..." (see CKorBoundingBoxesMD), "" for no mask;
//   rectangles  a vector of {x1, x2, y1, y2} vectors: left, right, top, bottom - the mask's
//               first, third, second and fourth coordinates, in that order.
#pragma once

#include "analytics/motion/GvmdStateMachine.h"
#include "entry/ZorExport.h"
#include "framework/bel/BelString.h"
#include "framework/kor/BoundingBoxesMD.h"

#include <cstdint>

class CJokGenericData;
class CKorMetadataHandler;

class ZOR_EXPORT CZorGVMDSettings {
public:
    using EVMDState = zormotion::CGvmdStateMachine::EState;
    // Pixels of a 352 x 240 frame.
    static constexpr long kFrameArea = 84480;

    CZorGVMDSettings() = default;
    virtual ~CZorGVMDSettings() = default;
    CZorGVMDSettings(const CZorGVMDSettings&) = delete;
    CZorGVMDSettings& operator=(const CZorGVMDSettings&) = delete;

    // A start (true) or end (false) at time (ms); realTime in seconds, or -1.0 when unknown.
    // The base does nothing.
    virtual void SignalCollision(long time, bool collision, double realTime);

    void SetSensitivity(double sensitivity);
    int SensitivityHandler(double value, int set);
    long ShortDelay(long value, int set);
    long LongDelay(long value, int set);
    // Packed form: set parses (an empty text clears the mask), get writes the text. A refused
    // text leaves the mask as it was and says why in *error when error is given.
    int PackedMaskHandler(CBelString* value, int set, CBelString* error = nullptr);
    // Rectangle form: get answers a new vector in *value; set borrows *value. A refused value
    // leaves the mask as it was and says why in *error when error is given.
    int MaskHandler(CJokGenericData** value, int set, CBelString* error = nullptr);

    // One detection step on a frame's boxes (borrowed, may be nullptr: no boxes).
    void ProcessMD(long time, const CKorBoundingBoxesMD* boxes, double realTime);
    // The same from a metadata chain (borrowed): its "BBX1" boxes; a chain without boxes
    // changes nothing, a null chain is a frame without boxes.
    void ProcessMD(long time, const CKorMetadataHandler* handler);

    void Reset() { m_Detector.Reset(); }
    EVMDState GetState() const { return m_Detector.GetState(); }
    long GetMotionTime() const { return m_Detector.GetMotionTime(); }
    double GetSensitivity() const { return m_dSensitivity; }
    long GetMinimumOverlap() const { return m_MinimumOverlap; }
    const CKorBoundingBoxesMD& GetMask() const { return m_Mask; }

private:
    zormotion::CGvmdStateMachine m_Detector;
    double m_dSensitivity = 1.0;
    CKorBoundingBoxesMD m_Mask;
    long m_MinimumOverlap = 1;
};
