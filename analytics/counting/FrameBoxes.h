// What the counting analysers take from a frame packet and give back: the "BBX1" boxes as plain
// boxes, the frame's size, and their own metadata object found on (or hung onto) the packet.
#pragma once

#include "analytics/counting/core/Boxes.h"

#include <cstdint>
#include <vector>

class CKorPacket;
class CKorMetadataHandler;
class CJokGenericData;

// Fills boxes with the packet's "BBX1" boxes (cleared first). A packet without any has none: an
// object tracker leaves them off a frame with no foreground.
void ZorReadFrameBoxes(const CKorPacket& packet, std::vector<zor::counting::SBox>& boxes);

// The picture size of a video packet's format (height as a positive number); false when the
// packet carries no format.
bool ZorFrameSize(const CKorPacket& packet, int* width, int* height);

// A frame coordinate as the 16-bit field metadata boxes keep.
std::uint16_t ZorBoxCoordinate(int value);

// The first metadata of type MD in the packet's handler chain, or a new one hung onto it (the
// packet's handler, or the chain's end, takes ownership).
template <class MD> MD* ZorFindOrAttach(CKorPacket& packet);

// Script rectangles and lines: a vector of four numbers, each finite and within +-100000.
bool ZorReadFourNumbers(CJokGenericData* value, double numbers[4]);
// A new vector value of four numbers.
CJokGenericData* ZorFourNumbers(const double numbers[4]);
