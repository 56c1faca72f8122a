/**
 * @file ipaddr.h
 * IPv4 and IPv6 address values, and host names with a compact byte record. C has get_unmapped_address_string() alone.
 *
 * Result codes of this family:
 * 1. 0 is success.
 * 2. 1 is a bad argument, a wrong address family, too little room, or a failed name call of the C library.
 * 3. 2 is a range overflow, from findAddressRange() and getAddressFromRangeOffset() alone.
 *
 * Nothing here prints, throws or locks. A text buffer whose length is below 1, or which is null, is never touched.
 */
#ifndef IPADDR_H
#define IPADDR_H

#include <stddef.h>
#include <stdint.h>

#pragma GCC visibility push(default)

#ifdef __cplusplus
/**
 * One IPv4 or IPv6 address, laid out as a socket address storage with a sockaddr_in or sockaddr_in6 at its start.
 *
 * Owns nothing; a copy is a byte copy. Calls may run together freely on different addresses. On one address nothing may
 * run beside a change or a print: printing clears fields, although it is const.
 *
 * | Offset | Bytes | IPv4                        | IPv6                        |
 * |--------|-------|-----------------------------|-----------------------------|
 * | 0      | 2     | family, 2                   | family, 10                  |
 * | 2      | 2     | port, never used            | port, never used            |
 * | 4      | 4     | address, network byte order | flow info, never used       |
 * | 8      | 16    | the first 8: zero padding   | address, network byte order |
 * | 24     | 4     | -                           | scope id, host byte order   |
 */
class alignas(8) CIpAddress
{
public:
    /** 0 empty, 2 (AF_INET) or 10 (AF_INET6); other values are carried but not understood. */
    uint16_t family = 0;
    /** Never used; cleared before printing. */
    mutable uint16_t port = 0;
    /** The IPv4 address in network byte order; of an IPv6 address the flow info, cleared before printing. */
    mutable uint32_t ipv4OrFlowInfo = 0;
    /** The IPv6 address in network byte order; of an IPv4 address 8 bytes of padding, cleared before printing. */
    mutable unsigned char ipv6[16] = {};
    /** Zone of an IPv6 address: an interface index in host byte order; 0 is none. */
    uint32_t scopeId = 0;
    /** Fills up to the size of a sockaddr_storage; neither read nor written. */
    unsigned char unused[100] = {};

    /**
     * Parses a text with getaddrinfo() and takes the first result of the wanted family.
     *
     * Sets the family, the address and (IPv6) the scope id; port and flow info stay as they were.
     *
     * @param text    numeric address, or a name unless @p flags say AI_NUMERICHOST
     * @param wanted  family: 2 (AF_INET) or 10 (AF_INET6)
     * @param flags   AI_ flags of getaddrinfo()
     * @retval 0  taken; also when getaddrinfo() succeeded without a result of that family, which changes nothing
     * @retval 1  @p text is null, another family, or getaddrinfo() failed; nothing changed
     * @blocking unless AI_NUMERICHOST: it may ask name servers    @locks nothing    @context any thread
     */
    int setAddrString(const char *text, unsigned short wanted, int flags);

    /**
     * Prints the address numerically, an IPv6 zone behind a '%'.
     *
     * Clears the port, and the padding (IPv4) or the flow info (else) of the object first: const in name alone.
     *
     * @param buf  receives the zero-terminated text
     * @param len  bytes of @p buf
     * @retval 0  printed
     * @retval 1  the address is empty or its family unknown, or the text does not fit
     * @blocking no    @locks nothing    @context any thread
     */
    int privResolveAddrString(char *buf, int len) const;

    /**
     * Prints the address numerically, an IPv4-mapped IPv6 address without its "::ffff:".
     *
     * @param buf  receives the zero-terminated text; the rest is filled with zeros
     * @param len  bytes of @p buf; 46 or more
     * @retval 0  printed
     * @retval 1  @p len is below 46, the address is empty or unknown, or its text with the zone is over 45 characters
     * @blocking no    @locks nothing    @context any thread
     */
    int getUnmappedAddressString(char *buf, int len) const;

    /**
     * Converts IPv4 to IPv4-mapped IPv6 and back.
     *
     * To IPv6, the flow info keeps the four bytes of the IPv4 address and the scope id becomes 0.
     *
     * @param wanted  2, 10, or any other family, which is stored as it is
     * @retval 0  converted, or of that family already
     * @retval 1  2 was wanted of an address that is not IPv4-mapped; nothing changed
     * @blocking no    @locks nothing    @context any thread
     */
    int convertToAddressFamily(int wanted);

    /**
     * Exports the address as InetAddressType and InetAddress (RFC 4001), the zone in network byte order.
     *
     * @param type   receives 0 unknown (empty), 1 ipv4, 2 ipv6 or 4 ipv6z; untouched on failure
     * @param bytes  receives the address
     * @param len    in: bytes of @p bytes; out: 0, 4, 16 or 20, and 0 on failure. 20 for any zoned address, also when
     *               there was room for 16 to 19 bytes only and the zone was not written.
     * @retval 0  exported
     * @retval 1  too little room, or an unknown family
     * @blocking no    @locks nothing    @context any thread
     */
    int getInetAddress(int &type, unsigned char *bytes, int &len) const;

    /**
     * Imports InetAddressType and InetAddress (RFC 4001); the zone is taken in host byte order.
     *
     * @param type   0 (@p len 0), 1 (4), 2 (16) or 4 (20, with a zone other than 0)
     * @param bytes  the address
     * @param len    bytes of @p bytes
     * @retval 0  imported
     * @retval 1  another type, or a length that is not the type's; nothing changed
     * @blocking no    @locks nothing    @context any thread
     */
    int setInetAddress(int type, const unsigned char *bytes, int len);

    /**
     * Tells whether this is an IPv6 address in fe80::/10.
     * @blocking no    @locks nothing    @context any thread
     */
    bool ipAddrIsIPv6LinkLocalAddress() const;

    /**
     * Tells whether this is an IPv6 address in ff02::1:ff00:0/104 (RFC 4291, 2.7.1).
     * @blocking no    @locks nothing    @context any thread
     */
    bool ipAddrIsIPv6SolicitedNodeAddress() const;

    /**
     * Sets the zone.
     *
     * @param scope  interface index; 0 is none
     * @retval 0  set
     * @retval 1  not an IPv6 address
     * @blocking no    @locks nothing    @context any thread
     */
    int setScopeId(unsigned int scope);

    /**
     * Fills the host part with the modified EUI-64 identifier of a MAC address (RFC 4291, appendix A).
     *
     * @param mac        6 bytes
     * @param prefixLen  bits to keep, 0 to 128; at most the low 64 bits are replaced
     * @retval 0  filled
     * @retval 1  @p prefixLen is above 128, @p mac is null, or this is not an IPv6 address; nothing changed
     * @blocking no    @locks nothing    @context any thread
     */
    int addIpv6EUI64(const unsigned char *mac, unsigned int prefixLen);

    /**
     * Fills the host part with the last 8 bytes of another address, unchanged.
     *
     * @param from       its last 8 address bytes are taken whatever its family
     * @param prefixLen  bits to keep, 0 to 128; at most the low 64 bits are replaced
     * @retval 0  filled
     * @retval 1  @p prefixLen is above 128, or this is not an IPv6 address; nothing changed
     * @blocking no    @locks nothing    @context any thread
     */
    int addIpv6EUI64(const CIpAddress &from, unsigned int prefixLen);

    /**
     * Makes this the link-local address of an interface: fe80:: and the MAC's modified EUI-64 identifier.
     *
     * @param mac    6 bytes
     * @param scope  interface index; 0 is none
     * @retval 0  made
     * @retval 1  @p mac is null; nothing changed
     * @blocking no    @locks nothing    @context any thread
     */
    int makeIpv6LinkLocal(const unsigned char *mac, unsigned int scope);

    /**
     * Turns a unicast address into its solicited-node multicast address, ff02::1:ff and its low 24 bits.
     *
     * @param scope  interface index; 0 is none
     * @retval 0  turned
     * @retval 1  not an IPv6 address
     * @blocking no    @locks nothing    @context any thread
     */
    int makeSolicitedNodeAddress(unsigned int scope);

    /**
     * Clears every bit after the first @p len bits.
     *
     * @param len  bits to keep: to 32 for IPv4, to 128 for any other family
     * @retval 0  cleared
     * @retval 1  the address is empty, or @p len is above the width; nothing changed
     * @blocking no    @locks nothing    @context any thread
     */
    int makePrefixFromLen(unsigned int len);

    /**
     * Counts the addresses from the lower of two to the higher.
     *
     * Two IPv4 addresses are ordered by their stored words read as little-endian numbers, so a distance may come out
     * modulo 2^32 (10.0.0.255 and 10.0.1.0 give 0xFFFFFFFF). Of two IPv6 addresses the only one with a scope id is the
     * higher, else the greater number.
     *
     * @param other  of the same family
     * @param count  receives the distance; untouched unless 0 is returned, and for two of the same unknown family
     * @retval 0  counted
     * @retval 1  the families differ, or both are empty
     * @retval 2  2^32 or more
     * @blocking no    @locks nothing    @context any thread
     */
    int findAddressRange(const CIpAddress &other, unsigned int &count);

    /**
     * Adds an offset to the address.
     *
     * The overflow test of IPv4 compares the stored word, read as a little-endian number, with the sum.
     *
     * @param offset  addresses to go up
     * @param out     receives family, address and (IPv6) scope id, on overflow those of this address; may be
     *                this object
     * @retval 0  added; also for an unknown family, of which only the family is copied
     * @retval 1  the address is empty
     * @retval 2  overflow
     * @blocking no    @locks nothing    @context any thread
     */
    int getAddressFromRangeOffset(unsigned int offset, CIpAddress &out) const;

    /**
     * Hook that names a zone while an address is printed: this one names none.
     *
     * A process that wants interface names defines this function itself; the dynamic linker then prefers it.
     *
     * @param ifIndex  the zone, not 0
     * @param buf      its decimal text, to be overwritten
     * @param len      bytes of @p buf
     * @return 0; ignored
     * @blocking no    @locks nothing    @context any thread
     */
    int getIfNameFromIfIndexDD(unsigned int ifIndex, char *buf, int len) const;
};

static_assert(sizeof(CIpAddress) == 128 && alignof(CIpAddress) == 8, "a sockaddr_storage");
static_assert(offsetof(CIpAddress, port) == 2 && offsetof(CIpAddress, ipv4OrFlowInfo) == 4 &&
                  offsetof(CIpAddress, ipv6) == 8 && offsetof(CIpAddress, scopeId) == 24,
              "a sockaddr_in or sockaddr_in6");

/**
 * A host as management code configures it: a DNS name or a literal address, with the text as it was given.
 *
 * Owns nothing; a copy is a byte copy. Calls may run together freely on different objects; on one object the caller
 * serialises them.
 *
 * The record of serialize() and deserialize(), which passes host names between processes:
 *
 * | Offset | Bytes | Field                                                                                         |
 * |--------|-------|-----------------------------------------------------------------------------------------------|
 * | 0      | 1     | hostType                                                                                      |
 * | 1      | 1     | nameLen, N                                                                                    |
 * | 2      | N     | name with its terminating zero                                                                |
 * | 2 + N  | 1     | hostType 2 only: low byte of the address family                                               |
 * | 3 + N  | 4     | family 2 only: the address, its bytes in reverse order (10.1.2.3 is 03 02 01 0a)              |
 * | 3 + N  | 16    | family 10 only: the address, each group of four bytes in reverse order (3 2 1 0, 7 6 5 4 ...) |
 * | 19 + N | 4     | family 10 only: scope id, most significant byte first                                         |
 */
class CIpHostname
{
public:
    /** 0 empty, 1 DNS name, 2 address. */
    uint8_t hostType = 0;
    /** Bytes of name with its terminating zero; 0 when no text is stored. A name of 255 characters wraps it to 0. */
    uint8_t nameLen = 0;
    /** The text as given, always zero-terminated. */
    char name[256] = {};
    /** The address, when hostType is 2. */
    CIpAddress address;

    /**
     * Stores a text and classifies it as an address literal (hostType 2) or a DNS name (1). No name is looked up.
     *
     * @param text  up to 255 characters
     * @retval 0  stored
     * @retval 1  @p text is null or too long; nothing changed
     * @blocking no    @locks nothing    @context any thread
     */
    int privDecodeNStoreString(const char *text);

    /**
     * Prints the address as a name that the resolver knows for it, else numerically.
     *
     * Clears the port, and the padding (IPv4) or the flow info (else) of the address first.
     *
     * @param buf  receives the zero-terminated text
     * @param len  bytes of @p buf
     * @retval 0  printed
     * @retval 1  the address is empty or its family unknown, or the text does not fit
     * @blocking yes: it may ask name servers    @locks nothing    @context any thread
     */
    int privResolveHostname(char *buf, unsigned int len);

    /**
     * Writes the record at buf[pos].
     *
     * @param buf     the whole buffer
     * @param pos     in: offset of the record; out: behind every byte that was written
     * @param bufLen  bytes of @p buf
     * @retval 0  written
     * @retval 1  @p buf is null, @p pos is negative, or the room is too small: nothing was written. Or hostType is
     *            above 2: the first 2 + N bytes were written.
     * @blocking no    @locks nothing    @context any thread
     */
    int serialize(unsigned char *buf, int &pos, int bufLen) const;

    /**
     * Reads the record at buf[pos]. Bytes may be hostile: nothing outside the buffer or this object is ever touched.
     *
     * @param buf     the whole buffer
     * @param pos     in: offset of the record; out: behind every byte that was read
     * @param bufLen  bytes of @p buf
     * @retval 0  read
     * @retval 1  @p buf is null, @p pos is negative, fewer than 2 bytes are left, or the name is longer than the room:
     *            nothing changed but @p pos. Or an address that is cut off or of unknown family, or a hostType above 2:
     *            what stands before it is stored.
     * @blocking no    @locks nothing    @context any thread
     */
    int deserialize(const unsigned char *buf, int &pos, int bufLen);

    /**
     * Exports the host as InetAddressType and InetAddress (RFC 4001).
     *
     * @param type   receives 0 unknown, 1 ipv4, 2 ipv6, 4 ipv6z or 16 dns; untouched on failure
     * @param bytes  receives the address or the name without its zero
     * @param len    in: bytes of @p bytes, at least 256 for a name; out: bytes of the value, 0 on failure
     * @retval 0  exported
     * @retval 1  too little room, an address of unknown family, or a hostType above 2
     * @blocking no    @locks nothing    @context any thread
     */
    int getInetAddress(int &type, unsigned char *bytes, int &len) const;

    /**
     * Imports InetAddressType and InetAddress (RFC 4001).
     *
     * An address (also the unknown one, type 0) sets hostType 2 and keeps the name; a name sets hostType 1 and keeps
     * the address.
     *
     * @param type   0, 1, 2 or 4 as CIpAddress::setInetAddress() takes them, or 16 dns
     * @param bytes  the address, or the name without a zero
     * @param len    bytes of @p bytes; 0 to 255 for a name
     * @retval 0  imported
     * @retval 1  another type, or a length that is not the type's; nothing changed
     * @blocking no    @locks nothing    @context any thread
     */
    int setInetAddress(int type, const unsigned char *bytes, int len);
};

static_assert(sizeof(CIpHostname) == 392 && offsetof(CIpHostname, nameLen) == 1 && offsetof(CIpHostname, name) == 2 &&
                  offsetof(CIpHostname, address) == 264,
              "processes linked earlier rely on it");

extern "C" {
#endif

/**
 * Prints an address text in its shortest numeric form, an IPv4-mapped IPv6 address as IPv4; "UNKNOWN" for any other
 * text.
 *
 * @param text  numeric IPv4 or IPv6 address; null is unknown
 * @param buf   receives the text as strncpy() writes it: filled up with zeros, and cut without a terminating zero when
 *              @p len is below 8
 * @param len   bytes of @p buf; below 46 the text is always "UNKNOWN"
 * @blocking no    @locks nothing    @context any thread
 */
void get_unmapped_address_string(const char *text, char *buf, unsigned int len);

#ifdef __cplusplus
} // extern "C"
#endif

#pragma GCC visibility pop

#endif
