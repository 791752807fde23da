#pragma once
// Type codes and record sizes of V_ELEMENT, shared by its source units.
#include "foundation/v_elem.h"
#include <cstddef>

namespace kestra::detail {

// Type codes of the element; every other code is reserved.
enum ElementKind : short {
    kNone = 0,
    kPoint = 1,
    kSegment = 2,
    kLine = 3,
    kCircle = 4,
    kArc = 5,
    kEllipse = 6,
    kEllipticalArc = 7,
    kSymbol = 12,
    kText = 14,
    kCurve = 19,
    kPolyline = 20,
    kPointSet = 26,
};

// True for the kinds whose payload owns heap storage: curve, polyline and point set.
inline bool is_owning(short t)
{
    return t == kCurve || t == kPolyline || t == kPointSet;
}

static_assert(sizeof(V_POINT) == 24 && sizeof(V_SEGM) == 48 && sizeof(V_LINE) == 48 &&
                  sizeof(V_CIRCLE) == 56 && sizeof(V_ARC) == 104 && sizeof(V_ELLIPSE) == 88 &&
                  sizeof(V_ELLIPTICALARC) == 136 && sizeof(V_SYMBOL_INST) == 136 &&
                  sizeof(V_TEXT) == 168,
              "payload sizes of the element record");

// Bytes of the record of a plain kind, which is also the part of the payload that carries
// meaning: the records of types 1 to 7 and 12, the fixed part of a text (14); 0 for the empty
// element, the owning kinds and every reserved code.
inline size_t fixed_record_bytes(short t)
{
    switch (t) {
    case kPoint:
        return sizeof(V_POINT);
    case kSegment:
        return sizeof(V_SEGM);
    case kLine:
        return sizeof(V_LINE);
    case kCircle:
        return sizeof(V_CIRCLE);
    case kArc:
        return sizeof(V_ARC);
    case kEllipse:
        return sizeof(V_ELLIPSE);
    case kEllipticalArc:
        return sizeof(V_ELLIPTICALARC);
    case kSymbol:
        return sizeof(V_SYMBOL_INST);
    case kText:
        return sizeof(V_TEXT);
    default:
        return 0;
    }
}

}  // namespace kestra::detail
