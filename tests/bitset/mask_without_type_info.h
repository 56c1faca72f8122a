// mask_without_type_info.h: a derived mask as a client has it that is built without run-time type information
// (-fno-rtti): its table of virtual functions tells no type. Its source alone is compiled so.
#pragma once

#include "bitset.h"

class MaskWithoutTypeInfo : public CBitMask
{
public:
    explicit MaskWithoutTypeInfo(unsigned bits);

    bool setBit(unsigned bit) override;
    bool clrBit(unsigned bit) override;
    bool assignBit(unsigned bit, bool value) override;
    bool chkBit(unsigned bit) const override;

    mutable int calls = 0; // of the operations above
};
