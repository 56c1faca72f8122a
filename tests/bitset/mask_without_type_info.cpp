#include "bitset/mask_without_type_info.h"

#ifdef __GXX_RTTI
#error "this source is about what happens without"
#endif

MaskWithoutTypeInfo::MaskWithoutTypeInfo(unsigned bits) : CBitMask(bits) {}

bool MaskWithoutTypeInfo::setBit(unsigned bit)
{
    ++calls;
    return CBitMask::setBit(bit);
}

bool MaskWithoutTypeInfo::clrBit(unsigned bit)
{
    ++calls;
    return CBitMask::clrBit(bit);
}

bool MaskWithoutTypeInfo::assignBit(unsigned bit, bool value)
{
    ++calls;
    return CBitMask::assignBit(bit, value);
}

bool MaskWithoutTypeInfo::chkBit(unsigned bit) const
{
    ++calls;
    return CBitMask::chkBit(bit);
}
