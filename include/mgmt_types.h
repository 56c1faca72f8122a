/**
 * @file mgmt_types.h
 * Value types of a management interface: octet string, object identifier, named-bit set, date and time.
 *
 * Result codes of this family:
 * 1. 0 is success, and 1 is failure: no destination or too little room, with the length argument set to 0.
 * 2. findSetBit() and nextBitLexico() return 0 when they found a bit and 1 when there is none.
 * 3. Malformed text and wrong byte lengths are not errors: they give the values that are described with each call.
 *
 * Every object owns its array; a copy is deep. Arrays only grow: a shorter value lowers the length alone. Nothing
 * locks: calls may run together freely on different objects, and const calls on one object. A failed allocation lets
 * the allocator's exception pass and leaves the object as it was.
 */
#ifndef MGMT_TYPES_H
#define MGMT_TYPES_H

#include <stddef.h>
#include <utility>

#pragma GCC visibility push(default)

/** A growable byte string (OCTET STRING). */
class SuOctetString
{
public:
    /** Where the value is. */
    struct Octets {
        unsigned char *ptr; /**< the array; owned, from new[] */
        int len;            /**< bytes in use, 0 to size */
    } os;                   /**< where the value is */
    /** Bytes allocated; what lies behind os.len is defined but meaningless. */
    int size;

    /**
     * Makes an empty value with room.
     *
     * @param room  bytes to allocate, cleared; a negative one is taken as 0
     * @blocking no    @locks nothing    @context any thread
     */
    explicit SuOctetString(int room);

    /**
     * Copies the value; the room is the value's length.
     * @blocking no    @locks nothing    @context any thread
     */
    SuOctetString(SuOctetString const &other) : SuOctetString(other.os.len)
    {
        setData(other.os.ptr, other.os.len);
    }

    /**
     * Copies the value into the room there is, which grows when it is too small.
     * @blocking no    @locks nothing    @context any thread
     */
    SuOctetString &operator=(SuOctetString const &other)
    {
        setData(other.os.ptr, other.os.len);
        return *this;
    }

    /**
     * Frees the array.
     * @blocking no    @locks nothing    @context any thread
     */
    ~SuOctetString()
    {
        delete[] os.ptr;
    }

    /**
     * Stores a value; the array is replaced by a larger one when it does not fit.
     *
     * @param data  copied; null makes the value empty. May lie in this object's own array.
     * @param n     bytes of @p data; a negative one makes the value empty
     * @blocking no    @locks nothing    @context any thread
     */
    void setData(unsigned char const *data, int n);

    /**
     * Copies the value out.
     *
     * @param dst  receives os.len bytes
     * @param n    in: bytes of @p dst; out: os.len, or 0 on failure
     * @retval 0  copied
     * @retval 1  @p dst is null or too small
     * @blocking no    @locks nothing    @context any thread
     */
    int getData(unsigned char *dst, int &n) const;

    /**
     * Copies the value out and appends a zero; zeros inside the value are copied as they are.
     *
     * @param dst  receives os.len + 1 bytes
     * @retval 0  copied
     * @retval 1  @p dst is null
     * @blocking no    @locks nothing    @context any thread
     */
    int getStr(char *dst) const;

    /**
     * Tells whether lengths and bytes are equal.
     * @blocking no    @locks nothing    @context any thread
     */
    bool operator==(SuOctetString const &other) const;

    /**
     * Tells whether the value is the characters of @p text, without its zero; a null @p text equals nothing.
     * @blocking no    @locks nothing    @context any thread
     */
    bool operator==(char const *text) const;

    /**
     * Compares the common prefix alone: a value is neither less nor greater than its own prefix.
     * @blocking no    @locks nothing    @context any thread
     */
    bool operator<(SuOctetString const &other) const;

    /**
     * Compares the common prefix alone: a value is neither less nor greater than its own prefix.
     * @blocking no    @locks nothing    @context any thread
     */
    bool operator>(SuOctetString const &other) const;

    /**
     * Prints lengths, pointer and all allocated bytes.
     *
     * In hexadecimal, groups of four and twenty bytes a line, a '|' stands before the first byte behind the value.
     *
     * @param cli      0: standard output; otherwise a session for the platform's cmNotifyCLI()
     * @param asChars  the bytes as characters, without marks, groups or line breaks
     * @blocking as the output does    @locks nothing    @context any thread
     */
    void dump(unsigned int cli, bool asChars) const;
};

/**
 * An object identifier.
 *
 * Its byte form is four octets a sub-identifier, most significant first; it is not the BER encoding.
 */
class SuOID
{
public:
    /** Where the value is. */
    struct SubIdentifiers {
        unsigned int *ptr; /**< the array; owned, from new[]; null before the first value */
        int len;           /**< sub-identifiers in use, 0 to size */
    } oid;                 /**< where the value is */
    /** Sub-identifiers allocated. */
    int size;

    /**
     * Makes an empty identifier without room.
     * @blocking no    @locks nothing    @context any thread
     */
    SuOID() : oid(), size(0) {}

    /**
     * Copies the value; the room is the value's length.
     * @blocking no    @locks nothing    @context any thread
     */
    SuOID(SuOID const &other) : SuOID()
    {
        *this = other;
    }

    /**
     * Frees the array.
     * @blocking no    @locks nothing    @context any thread
     */
    ~SuOID()
    {
        delete[] oid.ptr;
    }

    /**
     * Copies the value into the room there is, which grows when it is too small.
     * @blocking no    @locks nothing    @context any thread
     */
    SuOID &operator=(SuOID const &other);

    /**
     * Parses dotted text; every text is a value.
     *
     * There is one sub-identifier more than there are dots. Each is what strtoul() reads with base 0 (0x10 is 16, 010
     * is 8, but 0b is no prefix), cut to 32 bits; then one character is skipped, whatever it is. An empty field is 0.
     *
     * @param text  null makes the identifier empty
     * @blocking no    @locks nothing    @context any thread
     */
    SuOID &operator=(char const *text);

    /**
     * Tells whether lengths and sub-identifiers are equal.
     * @blocking no    @locks nothing    @context any thread
     */
    bool operator==(SuOID const &other) const;

    /**
     * Writes dotted text in decimal.
     *
     * @param dst  receives getStrLen() bytes; one byte, the zero, for an empty identifier
     * @retval 0  written
     * @retval 1  @p dst is null
     * @blocking no    @locks nothing    @context any thread
     */
    int getStr(char *dst) const;

    /**
     * Returns the bytes that getStr() writes, zero included; 0 for an empty identifier, for which it writes one. Above
     * 195 million sub-identifiers the number wraps.
     * @blocking no    @locks nothing    @context any thread
     */
    int getStrLen() const;

    /**
     * Writes the byte form.
     *
     * @param dst  receives 4 * oid.len bytes
     * @param n    in: bytes of @p dst; out: 4 * oid.len, or 0 on failure
     * @retval 0  written
     * @retval 1  @p dst is null or too small
     * @blocking no    @locks nothing    @context any thread
     */
    int getData(unsigned char *dst, int &n) const;

    /**
     * Reads the byte form.
     *
     * @param data  null makes the identifier empty
     * @param n     bytes of @p data; one that is negative or no multiple of 4 makes the identifier empty
     * @blocking no    @locks nothing    @context any thread
     */
    void setData(unsigned char const *data, int n);

    /**
     * Prints pointer, lengths and all allocated sub-identifiers on standard output.
     *
     * In hexadecimal, four a line, a '|' stands before the first sub-identifier behind the value.
     *
     * @param dotted  in decimal with dots between them
     * @blocking as standard output does    @locks nothing    @context any thread
     */
    void dump(bool dotted) const;
};

/**
 * A set of named bits (BITS): bit n is 0x80 >> (n % 8) of octet n / 8.
 */
class SuBITS : public SuOctetString
{
public:
    /**
     * Makes a set with every bit clear.
     *
     * @param highestBit  the highest bit there is room for; the value has highestBit / 8 + 1 octets
     * @blocking no    @locks nothing    @context any thread
     */
    explicit SuBITS(unsigned char highestBit);

    /**
     * Copies the octets in use; the room is their number.
     * @blocking no    @locks nothing    @context any thread
     */
    SuBITS(SuBITS const &other);

    /**
     * Copies the octets in use into the room there is, which grows when it is too small.
     * @blocking no    @locks nothing    @context any thread
     */
    SuBITS &operator=(SuBITS const &other) = default;

    /**
     * Clears the octets in use.
     * @blocking no    @locks nothing    @context any thread
     */
    void clear();

    /**
     * Tells whether any bit is set.
     * @blocking no    @locks nothing    @context any thread
     */
    bool bitsAreSet() const;

    /**
     * Counts the bits that are set; above 256 MiB of octets the number wraps.
     * @blocking no    @locks nothing    @context any thread
     */
    int numBitsSet() const;

    /**
     * Searches upward for a set bit.
     *
     * @param pos  in: the first bit to look at; out: the bit found, else 8 * os.len, unless it started past that
     * @retval 0  found
     * @retval 1  no bit at or above @p pos is set
     * @blocking no    @locks nothing    @context any thread
     */
    int findSetBit(unsigned int &pos) const;

    /**
     * Searches downward for a set bit.
     *
     * @param pos  in: the first bit to look at, the last there is when it lies past the octets in use; out: the bit
     *             found; unchanged when there is none
     * @retval 0  found
     * @retval 1  no bit at or below @p pos is set
     * @blocking no    @locks nothing    @context any thread
     */
    int nextBitLexico(unsigned int &pos) const;
};

/**
 * A calendar time (DateAndTime, RFC 2579), without (8 octets) or with (11) an offset from UTC.
 *
 * | Octet | Field                                                |
 * |-------|------------------------------------------------------|
 * | 0-1   | year, most significant octet first                   |
 * | 2     | month, 1 to 12                                       |
 * | 3     | day of the month, 1 to 31                            |
 * | 4     | hour, 0 to 23                                        |
 * | 5     | minutes, 0 to 59                                     |
 * | 6     | seconds, 0 to 60                                     |
 * | 7     | deci-seconds: written 0, ignored when read           |
 * | 8     | direction from UTC, '+' or '-' (11 octets only)      |
 * | 9     | hours from UTC, 0 to 13 (11 octets only)             |
 * | 10    | minutes from UTC, 0 to 59 (11 octets only)           |
 *
 * The octets allocated (size) decide the form, not those in use: 11 are the long one, and of any other number at most
 * the first eight count. Octets that are not allocated are read as 0 and not written.
 */
class SuDateAndTime : public SuOctetString
{
public:
    /**
     * Makes a value without octets, for init().
     * @blocking no    @locks nothing    @context any thread
     */
    SuDateAndTime() : SuOctetString(0) {}

    /**
     * Copies the octets in use; the room is their number.
     * @blocking no    @locks nothing    @context any thread
     */
    SuDateAndTime(SuDateAndTime const &other) = default;

    /**
     * Takes the other's form as well: a value of 11 octets that is given one of 8 has 8.
     * @blocking no    @locks nothing    @context any thread
     */
    SuDateAndTime &operator=(SuDateAndTime const &other)
    {
        SuDateAndTime copy(other);
        std::swap(os, copy.os);
        std::swap(size, copy.size);
        return *this;
    }

    /**
     * Gives the value its octets, cleared; octets that it had are freed.
     *
     * @param length  8: without an offset from UTC; any other number: 11 octets, with it
     * @blocking no    @locks nothing    @context any thread
     */
    void init(int length);

    /**
     * Clears the octets in use.
     * @blocking no    @locks nothing    @context any thread
     */
    void clear();

    /**
     * Stores a time as local time of the process, and the offset as it is given.
     *
     * The offset is neither derived from the time zone nor applied. A time that has no local time clears every octet.
     *
     * @param seconds         since the epoch; of a year above 65535 the low 16 bits are stored
     * @param hoursFromUtc    -13 to 13; the direction is its sign
     * @param minutesFromUtc  0 to 59; if either is out of its range, hours and minutes are stored as 0
     * @blocking no    @locks nothing but the C library's own for the time zone    @context any thread
     */
    void setValue(long seconds, int hoursFromUtc, unsigned int minutesFromUtc);

    /**
     * Reads the time as local standard time of the process, and the offset as it is stored.
     *
     * The offset is not applied. When daylight saving time is in force at that time, @p seconds is what mktime() makes
     * of the same clock reading in standard time.
     *
     * @param seconds         receives seconds since the epoch; -1, and a line on standard output, when mktime()
     *                        gives -1
     * @param hoursFromUtc    receives the hours, negative for the direction '-'; 0 unless 11 octets are allocated
     * @param minutesFromUtc  receives the minutes; 0 unless 11 octets are allocated
     * @blocking no    @locks nothing but the C library's own for the time zone    @context any thread
     */
    void getValue(long &seconds, int &hoursFromUtc, unsigned int &minutesFromUtc);
};

static_assert(sizeof(SuOctetString) == 24 && offsetof(SuOctetString, size) == 16,
              "processes linked earlier rely on it");
static_assert(sizeof(SuOID) == 24 && offsetof(SuOID, size) == 16, "processes linked earlier rely on it");
static_assert(sizeof(SuBITS) == 24 && sizeof(SuDateAndTime) == 24, "the fields of an octet string and no others");

#pragma GCC visibility pop

#endif
