/**
 * @file bitset.h
 * Fixed-size sets of small numbers: CBitMask, a mask over 32-bit words, and CBitMatrix, rows of such words.
 *
 * Result codes of this family:
 * 1. Calls that write one bit, word or octet, assign() and bits_in() return true only when the stored data changed.
 * 2. Searches return a bit number, or 0xFFFFFFFF when there is none.
 * 3. What is out of range is refused: false or 0, nothing written. Nothing ever grows.
 *
 * Bits count from the most significant, in every operation: bit k is `0x80000000 >> (k % 32)` of word k / 32, and octet
 * i of a mask is the (i % 4)-th most significant byte of word i / 4, whatever the host's byte order. In byte buffers
 * bit j is `0x80 >> (j % 8)` of byte j / 8. The order is that of the SNMP BITS encoding (RFC 2578) and of PortList
 * (RFC 2674).
 *
 * No object here has a lock: calls on one object take turns, unless a call says more. An allocation that fails lets the
 * allocator's exception pass and leaves the object empty.
 */
#ifndef BITSET_H
#define BITSET_H

#include <stddef.h>

#pragma GCC visibility push(default)

/**
 * A fixed-size set of bits in an array of 32-bit words that the mask owns, or views in memory of the caller.
 *
 * Bounds are those of whole words: in the last word the bits behind the requested size, the tail, are read, written,
 * found, counted and compared like all others.
 *
 * May run together: one writer of single bits (setBit, clrBit, assignBit) and any number of readers of single bits and
 * searches (chkBit and the const findSetBit, findClrBit). A reader sees each bit before or after the writer's change.
 * All other calls need the mask for themselves.
 *
 * Every operation is virtual, and operations that use others call them through the virtual table, so that a derived
 * class can replace the storage hooks.
 */
class CBitMask
{
public:
    unsigned int autoDelete : 1; /**< 1: the mask owns the words and frees them */
    unsigned int tailBits : 5;   /**< bits of the last word behind the requested size, 0 to 31 */
    unsigned int spare : 2;      /**< belongs to nobody; kept by every operation after construction */
    unsigned int signature : 8;  /**< 0xA5 from construction until destruction, then 0 */
    unsigned int numWords : 16;  /**< 32-bit words in the array */
    unsigned int *maskPtr;       /**< the words; null when there are none */

    static unsigned int version; /**< 0x01000001; nothing here reads it */

    /** Makes an empty mask. */
    CBitMask();
    /** Makes a cleared mask of @p bits bits, as init(unsigned int) does. */
    explicit CBitMask(unsigned int bits);
    /** Makes a view of the caller's words, as init(unsigned int, unsigned int *) does. */
    CBitMask(unsigned int wordCount, unsigned int *words);
    /** Makes an owned copy, as init(CBitMask const &, bool) does; this is the copy constructor. */
    CBitMask(CBitMask const &other, bool invert = false);
    /** Makes a mask sized for bytes, as init(unsigned char const *, unsigned int) does. */
    CBitMask(unsigned char const *bytes, unsigned int numBytes);

    /** Clears the signature, then frees the words if the mask owns them. */
    virtual ~CBitMask();

    /**
     * Makes the mask a cleared one of @p bits bits, after freeing the words it owned.
     *
     * @param bits  0 gives an empty mask. The word count is cut to 16 bits: above 2,097,120 bits it wraps, and a count
     *              that wraps to 0 gives an empty mask.
     * @blocking no    @locks nothing    @context any thread, one at a time for a mask
     */
    virtual void init(unsigned int bits);

    /**
     * Makes the mask an owned copy of another, after freeing the words it owned.
     *
     * A mask that owns its words and is its own @p other therefore ends empty; a view becomes the owner of a copy.
     *
     * @param other   also gives the number of tail bits
     * @param invert  true: every word is complemented on the way, the tail too
     * @blocking no    @locks nothing    @context any thread, one at a time for a mask
     */
    virtual void init(CBitMask const &other, bool invert);

    /**
     * Makes the mask a view of the caller's words, after freeing the words it owned. The words are not cleared.
     *
     * When @p wordCount is 0 or @p words is null, a mask that is a view keeps its array; only the tail becomes 0.
     *
     * @param wordCount  32-bit words, not bits; cut to 16 bits, and a count cut to 0 gives an empty mask
     * @param words      the caller's; must outlive the view and must not be the words this mask owns
     * @blocking no    @locks nothing    @context any thread, one at a time for a mask
     */
    virtual void init(unsigned int wordCount, unsigned int *words);

    /**
     * Makes the mask a cleared one that is large enough for bytes, after freeing the words it owned.
     *
     * The bytes go nowhere unless a derived class replaces data_in(), which then gets (@p bytes, 0xFFFFFFFF, 0); from
     * a constructor this class's own is meant, always. octet_string_in() fills a mask from bytes.
     *
     * @param bytes     passed on to data_in()
     * @param numBytes  0 gives an empty mask; times 8 it is a 32-bit product, and the word count is cut to 16 bits
     * @blocking no    @locks nothing    @context any thread, one at a time for a mask
     */
    virtual void init(unsigned char const *bytes, unsigned int numBytes);

    /**
     * Clears a range of bits.
     *
     * @param count  bits; 0 or more than there are behind @p start means all of them
     * @param start  first bit; beyond the number of bits it means 0, exactly at it nothing happens
     * @blocking no    @locks nothing    @context any thread, one at a time for a mask
     */
    virtual void reset(unsigned int count = 0, unsigned int start = 0);

    /** Sets a range of bits; @p count and @p start as for reset(). */
    virtual void set(unsigned int count = 0, unsigned int start = 0);

    /**
     * Copies a range of bits from another mask.
     *
     * When both starts are multiples of 32, whole words are copied, and the last word in the range is merged instead:
     * the two words are ORed and the lowest @p src.tailBits bits of the result cleared, also in mid-mask.
     *
     * @param src       through its chkBit() and operator[]; may be this mask, copied from the lowest bit up
     * @param srcStart  first bit to copy
     * @param dstStart  first bit to write
     * @param count     bits; 0 means as many as both masks have
     * @return true if something changed; false too when a start is out of range
     * @blocking no    @locks nothing    @context any thread, one at a time for a mask
     */
    virtual bool assign(CBitMask const &src, unsigned int srcStart, unsigned int dstStart, unsigned int count);

    /**
     * Copies bits from words.
     *
     * When @p dstStart is a multiple of 32, whole words are copied, and the last one is merged: the two words are ORed
     * and the lowest bits of the result cleared, as many as this mask has tail bits.
     *
     * @param words        bits numbered as in a mask
     * @param numSrcWords  32-bit words; 0 copies nothing
     * @param dstStart     first bit to write
     * @return true if a bit changed; always false when @p dstStart is a multiple of 32 or out of range
     * @blocking no    @locks nothing    @context any thread, one at a time for a mask
     */
    virtual bool assign(unsigned int const *words, unsigned int numSrcWords, unsigned int dstStart);

    /**
     * Fills the mask from an octet string, bit 0 from the most significant bit of the first octet.
     *
     * @param src      octets; as many as @p len says, or as the mask has when @p len is null or 0
     * @param len      in: octets; fewer than the mask has clear the rest, more are ignored. Out, unless it was 0: the
     *                 octets of the mask, not those moved. May be null.
     * @param reverse  true: bit 0 comes from the least significant bit, in each octet
     * @blocking no    @locks nothing    @context any thread, one at a time for a mask
     */
    virtual void octet_string_in(unsigned char const *src, unsigned int *len, bool reverse);

    /**
     * Writes the mask as an octet string, bit 0 in the most significant bit of the first octet.
     *
     * @param dst      room for as many octets as @p len says, or as the mask has when @p len is null or 0
     * @param len      in: octets; octets beyond the mask's are zeroed. Out, unless it was 0: the octets of the mask,
     *                 not those written. May be null.
     * @param reverse  true: bit 0 is the least significant bit, in each octet
     * @blocking no    @locks nothing    @context any thread, one at a time for a mask
     */
    virtual void octet_string_out(unsigned char *dst, unsigned int *len, bool reverse) const;

    /**
     * Hook for derived classes: takes whole words from bytes. This one takes nothing.
     *
     * @param src        the source of bits_in() or init()
     * @param wordCount  32-bit words asked for; not limited to the mask's, 0xFFFFFFFF from init()
     * @param firstWord  index of the first word to write
     * @return true if something changed; here false
     * @blocking no    @locks nothing    @context that of the calling operation
     */
    virtual bool data_in(unsigned char const *src, unsigned int wordCount, unsigned int firstWord);

    /** Hook for derived classes: as data_in(), but ORs the words into the mask. */
    virtual bool data_or_in(unsigned char const *src, unsigned int wordCount, unsigned int firstWord);

    /**
     * Hook for derived classes: writes whole words to bytes. This one writes nothing.
     *
     * @param dst        the destination of bits_out()
     * @param wordCount  32-bit words, limited to the mask's unless the range's 32-bit sum wrapped
     * @param firstWord  index of the first word to read
     * @return words written; here 0
     * @blocking no    @locks nothing    @context that of the calling operation
     */
    virtual unsigned int data_out(unsigned char *dst, unsigned int wordCount, unsigned int firstWord) const;

    /**
     * Makes a range of bits equal to the first bits of a byte buffer.
     *
     * A range that starts and ends on a word boundary goes to data_in() instead, so here it transfers nothing.
     *
     * @param src    bit 0 is the most significant bit of byte 0
     * @param count  bits; cut at the end of the mask. `start + count` is a 32-bit sum.
     * @param start  first bit of the mask
     * @return true if a bit changed; false too when @p count is 0 or the range lies outside
     * @blocking no    @locks nothing    @context any thread, one at a time for a mask
     */
    virtual bool bits_in(unsigned char const *src, unsigned int count, unsigned int start);

    /** As bits_in(), but only sets bits: where the buffer has a 0 the mask stays. Whole words go to data_or_in(). */
    virtual bool bits_or_in(unsigned char const *src, unsigned int count, unsigned int start);

    /**
     * Writes a range of bits to the first bits of a byte buffer; the other bits of the bytes touched stay.
     *
     * A range that starts and ends on a word boundary goes to data_out() instead, so here it transfers nothing.
     *
     * @param dst    bit 0 is the most significant bit of byte 0
     * @param count  bits; cut at the end of the mask. `start + count` is a 32-bit sum.
     * @param start  first bit of the mask
     * @return bytes touched; four times the result of data_out() for whole words; 0 when @p count is 0 or @p start is
     *         beyond the end; 0x20000000, with nothing written, when @p start is exactly at the end
     * @blocking no    @locks nothing    @context any thread, one at a time for a mask
     */
    virtual unsigned int bits_out(unsigned char *dst, unsigned int count, unsigned int start) const;

    /** Sets a bit; returns true if it was clear, false too when @p bit is out of range. */
    virtual bool setBit(unsigned int bit);
    /** Clears a bit; returns true if it was set, false too when @p bit is out of range. */
    virtual bool clrBit(unsigned int bit);
    /** Makes a bit equal to @p value; returns true if it changed, false too when @p bit is out of range. */
    virtual bool assignBit(unsigned int bit, bool value);
    /** Writes the word of index @p wordIndex; returns true if it changed, false too when out of range. */
    virtual bool setWrd32(unsigned int wordIndex, unsigned int word);
    /** Writes the octet of index @p octetIndex; returns true if it changed, false too when out of range. */
    virtual bool setWrd8(unsigned int octetIndex, unsigned char octet);
    /** Returns a bit; false when @p bit is out of range. */
    virtual bool chkBit(unsigned int bit) const;
    /** Returns true when any bit is set. */
    virtual bool bitsAreSet() const;
    /** Returns how many bits are set, counted afresh. */
    virtual unsigned int numBitsSet() const;

    /**
     * Finds the first set bit from @p start on, and clears it if @p take is true.
     *
     * @return its number, or 0xFFFFFFFF when there is none
     * @blocking no    @locks nothing    @context any thread, one at a time for a mask
     */
    virtual unsigned int findSetBit(unsigned int start, bool take);
    /** Finds the first clear bit from @p start on, and sets it if @p take is true; otherwise as findSetBit(). */
    virtual unsigned int findClrBit(unsigned int start, bool take);
    /** Returns the first set bit from @p start on, or 0xFFFFFFFF when there is none. */
    virtual unsigned int findSetBit(unsigned int start = 0) const;
    /** Returns the first clear bit from @p start on, or 0xFFFFFFFF when there is none; it may be one of the tail. */
    virtual unsigned int findClrBit(unsigned int start = 0) const;

    /** Copies the words that both masks have. Neither size nor ownership nor tail change. */
    virtual CBitMask &operator=(CBitMask const &other);
    /** Copies as many words as the mask has; the array must hold them. */
    virtual CBitMask &operator=(unsigned int const *words);
    /** Returns the word (not the bit) of index @p wordIndex; 0 when out of range. */
    virtual unsigned int operator[](unsigned int wordIndex) const;
    /** ANDs the words that both masks have; further words stay. */
    virtual CBitMask &operator&=(CBitMask const &other);
    /** XORs the words that both masks have; further words stay. */
    virtual CBitMask &operator^=(CBitMask const &other);
    /** ORs the words that both masks have; further words stay. */
    virtual CBitMask &operator|=(CBitMask const &other);
    /** Moves every bit from number k to k + @p count; the lowest numbers become clear. The tail takes part. */
    virtual void operator>>=(unsigned int count);
    /** Moves every bit from number k to k - @p count; the highest numbers become clear. The tail takes part. */
    virtual void operator<<=(unsigned int count);
    /** Returns true when both masks have the same number of words and equal words; the sizes asked for do not count. */
    virtual bool operator==(CBitMask const &other) const;
    /** Returns the opposite of operator==(). */
    virtual bool operator!=(CBitMask const &other) const;
    /** Returns an owned complement of the whole mask, the tail too. */
    virtual CBitMask operator~() const;
    /** Complements every word in place. */
    virtual void bitwiseNotEqual();
    /** Makes the words that both masks have the complement of the other's. */
    virtual void bitwiseNotEqual(CBitMask const &other);

    /** Returns the bytes of the words plus 24 for the object, whoever owns the words. */
    virtual size_t size() const;

    /**
     * Prints the mask on standard output.
     *
     * @param verbose  true: six header fields and every word; false: the runs of set bits, like "0-2,5,"
     * @param width    characters a line; 0 means 80
     * @param indent   spaces in front of continued lines (of the words from the first line on); taken as 0 when
     *                 @p width is not larger
     * @blocking as standard output does    @locks nothing    @context any thread, one at a time for a mask
     */
    virtual void display(bool verbose, int width, int indent) const;

    /** Returns the position of the first set bit of a word that is not 0, counted from the most significant. */
    static int scanbit(unsigned int word);
    /** Returns the position of the first clear bit of a word that is not all ones, counted from the most significant.
     */
    static int scanclrbit(unsigned int word);
};

/**
 * Prints a mask on standard output: six header fields, then its bits.
 *
 * @param mask    null, or memory that does not carry a live mask's signature, prints "Invalid CBitMask ptr"
 * @param ranges  true: the runs of set bits, like "[0..2],[5],"; false: every word, eight to a line
 * @return the result of the last character's output: a newline, or EOF
 * @blocking as standard output does    @locks nothing    @context any thread, one at a time for a mask
 */
int printCBitMask(CBitMask const *mask, bool ranges);

/**
 * Exercises a small mask and prints numbered results on standard output.
 *
 * @blocking as the output does    @locks nothing    @context any thread
 */
void test_bitmask();

/**
 * A fixed-size table of bits: rows of whole 32-bit words, one behind the other, owned or in memory of the caller.
 *
 * Bit (row, column) is `0x80000000 >> (column % 32)` of word `row * wordsPerRow + column / 32`, so each row is a mask.
 * The spare columns, from numColumns to the end of a row's last word, are refused by setBit, clrBit, assignBit, chkBit
 * and the calls on columns, and reached by those on rows and on the whole matrix. Rows are handled through CBitMask
 * views, whose word count is cut to 16 bits: a row of more than 65535 words is not reached as a whole.
 *
 * Every operation is virtual, and operations that use others call them through the virtual table.
 */
class CBitMatrix
{
public:
    unsigned int numRows;     /**< rows */
    unsigned int numColumns;  /**< columns, without the spare ones */
    unsigned int wordsPerRow; /**< 32-bit words of a row */
    unsigned int *maskPtr;    /**< numRows times wordsPerRow words, row 0 first; null when there are none */
    unsigned char autoDelete; /**< 1: the matrix owns the words and frees them */
    unsigned char signature;  /**< 0x5A from construction until destruction, then 0 */

    /** Makes an empty matrix. */
    CBitMatrix();
    /** Makes a cleared matrix, as init(unsigned int, unsigned int, unsigned int *) does. */
    CBitMatrix(unsigned int rows, unsigned int columns, unsigned int *words);
    /** Makes an owned copy, as init(CBitMatrix const &) does. */
    CBitMatrix(CBitMatrix const &other);
    CBitMatrix &operator=(CBitMatrix const &) = delete;

    /** Clears the signature, then frees the words if the matrix owns them. */
    virtual ~CBitMatrix();

    /**
     * Makes the matrix a cleared one, after freeing the words it owned.
     *
     * @param rows     0 gives a matrix without words
     * @param columns  0 gives a matrix without words
     * @param words    null: the matrix allocates and owns its words; otherwise the caller's words are used and cleared,
     *                 @p rows times the words of a row, which must outlive the matrix
     * @blocking no    @locks nothing    @context any thread, one at a time for a matrix
     */
    virtual void init(unsigned int rows, unsigned int columns, unsigned int *words);

    /**
     * Makes the matrix an owned copy of another, after freeing the words it owned. A matrix that owns its words and is
     * its own @p other therefore ends empty.
     *
     * @blocking no    @locks nothing    @context any thread, one at a time for a matrix
     */
    virtual void init(CBitMatrix const &other);

    /** Returns the bytes of the words plus 40 for the object, whoever owns the words. */
    virtual size_t size() const;

    /** Hook for derived classes: fills the matrix from bytes. This one takes nothing and returns false. */
    virtual bool data_in(unsigned char const *src);
    /** Hook for derived classes: writes the matrix to bytes. This one writes nothing and returns the words' bytes. */
    virtual unsigned int data_out(unsigned char *dst) const;

    /**
     * Makes a rectangle equal to the first bits of a byte buffer, row by row; rows are not padded to bytes.
     *
     * A single row follows the rules of CBitMask::bits_in(), so columns that start and end on a word boundary transfer
     * nothing.
     *
     * @param src                bit 0 is the most significant bit of byte 0
     * @param rowFirst,rowLast   rows, both included
     * @param colFirst,colLast   columns, both included; spare ones count
     * @return true if a bit changed; false too when the first row or column is behind the last or a row or column has
     *         no words, with nothing written
     * @blocking no    @locks nothing    @context any thread, one at a time for a matrix
     */
    virtual bool bits_in(unsigned char const *src, unsigned int rowFirst, unsigned int rowLast, unsigned int colFirst,
                         unsigned int colLast);

    /**
     * Writes a rectangle to the first bits of a byte buffer, row by row; the other bits of the bytes touched stay.
     *
     * A single row follows the rules of CBitMask::bits_out(), so columns that start and end on a word boundary transfer
     * nothing, and a row that does not exist gives 0.
     *
     * @param dst                bit 0 is the most significant bit of byte 0
     * @param rowFirst,rowLast   rows, both included
     * @param colFirst,colLast   columns, both included; spare ones count
     * @return bytes touched; 0x20000000 when several rows give no bit: the first row or column is behind the last, or a
     *         row or column has no words
     * @blocking no    @locks nothing    @context any thread, one at a time for a matrix
     */
    virtual unsigned int bits_out(unsigned char *dst, unsigned int rowFirst, unsigned int rowLast,
                                  unsigned int colFirst, unsigned int colLast) const;

    /** Makes every bit equal to @p value, the spare columns too. */
    virtual void set(bool value);

    /**
     * Sets or clears a range of a row.
     *
     * @param row    a row that does not exist is ignored
     * @param value  true sets
     * @param count  bits; 0 means numColumns; cut at the end of the row's words
     * @param start  first column; beyond the row's words it means 0, exactly at their end nothing happens
     * @blocking no    @locks nothing    @context any thread, one at a time for a matrix
     */
    virtual void setRow(unsigned int row, bool value, unsigned int count, unsigned int start);

    /**
     * Sets or clears a range of a column.
     *
     * @param col    a column behind the row's words is ignored; a spare one is not
     * @param value  true sets
     * @param count  rows; 0 or more than there are behind @p start means all of them
     * @param start  first row; beyond the number of rows it means 0, exactly at it nothing happens
     * @blocking no    @locks nothing    @context any thread, one at a time for a matrix
     */
    virtual void setCol(unsigned int col, bool value, unsigned int count, unsigned int start);

    /** Clears every bit, through set(bool). */
    virtual void reset();
    /** Clears a range of a row, through setRow(). */
    virtual void resetRow(unsigned int row, unsigned int count, unsigned int start);
    /** Clears a range of a column, through setCol(). */
    virtual void resetCol(unsigned int col, unsigned int count, unsigned int start);
    /** Complements every word in place, the spare columns too. */
    virtual void bitwiseNotEqual();

    /** Sets a bit; returns true if it was clear, false too when there is no such row or column. */
    virtual bool setBit(unsigned int row, unsigned int col);
    /** Clears a bit; returns true if it was set, false too when there is no such row or column. */
    virtual bool clrBit(unsigned int row, unsigned int col);
    /** Makes a bit equal to @p value through setBit() or clrBit(), whose result it returns. */
    virtual bool assignBit(unsigned int row, unsigned int col, bool value);
    /** Returns a bit; false when there is no such row or column. */
    virtual bool chkBit(unsigned int row, unsigned int col) const;
    /** Returns true when any bit is set, spare columns included. */
    virtual bool bitsAreSet() const;
    /** Returns true when any bit of the row is set, spare columns included; false when there is no such row. */
    virtual bool rowBitsAreSet(unsigned int row) const;
    /** Returns true when any bit of the column is set; false when there is no such column. */
    virtual bool colBitsAreSet(unsigned int col) const;
    /** Returns how many bits are set, spare columns included, counted afresh. */
    virtual unsigned int numBitsSet() const;

    /**
     * Finds the first set bit of a row from column @p start on, and clears it if @p take is true.
     *
     * @return its column, which may be a spare one, or 0xFFFFFFFF when there is none or no such row
     * @blocking no    @locks nothing    @context any thread, one at a time for a matrix
     */
    virtual unsigned int findRowSetBit(unsigned int row, unsigned int start, bool take) const;

    /**
     * Finds the first set bit of a column from row @p startRow on, and clears it if @p take is true.
     *
     * @return its row, or 0xFFFFFFFF when there is none or no such column
     * @blocking no    @locks nothing    @context any thread, one at a time for a matrix
     */
    virtual unsigned int findColSetBit(unsigned int col, unsigned int startRow, bool take) const;

    /** Finds the first clear bit of a row, and sets it if @p take is true; otherwise as findRowSetBit(). */
    virtual unsigned int findRowClrBit(unsigned int row, unsigned int start, bool take) const;
    /** Finds the first clear bit of a column, and sets it if @p take is true; otherwise as findColSetBit(). */
    virtual unsigned int findColClrBit(unsigned int col, unsigned int startRow, bool take) const;

    /**
     * Copies a row into a mask.
     *
     * @param row  0 and up
     * @param out  a mask of at least a row's words; a longer one gets the words of the following rows as well, as far
     *             as there are any
     * @return true; false when @p out is null or too short or there is no such row
     * @blocking no    @locks nothing    @context any thread, one at a time for a matrix
     */
    virtual bool getRow(unsigned int row, CBitMask *out) const;

    /**
     * Copies a mask into a row, as CBitMask::assign() copies whole words: the last word is merged.
     *
     * @return true if a word changed; false too when @p in is null or there is no such row
     * @blocking no    @locks nothing    @context any thread, one at a time for a matrix
     */
    virtual bool setRow(unsigned int row, CBitMask *in);

    /**
     * Copies a column into a mask, row i to bit i; further bits of the mask stay.
     *
     * @return true; false when @p out is null or has fewer bits than there are rows, or there is no such column
     * @blocking no    @locks nothing    @context any thread, one at a time for a matrix
     */
    virtual bool getCol(unsigned int col, CBitMask *out) const;

    /**
     * Copies a mask into a column, bit i to row i.
     *
     * @return true if a bit changed; false too when @p in is null or has fewer bits than there are rows, or there is
     *         no such column
     * @blocking no    @locks nothing    @context any thread, one at a time for a matrix
     */
    virtual bool setCol(unsigned int col, CBitMask *in);
};

/**
 * Prints a matrix on standard output: seven header fields, then its bits.
 *
 * @param m       null, or memory that does not carry a live matrix's signature, prints "Invalid CBitMatrix ptr"
 * @param ranges  true: the runs of set columns of every row, like "[2,0..3,0],[5,1],"; false: every word
 * @blocking as standard output does    @locks nothing    @context any thread, one at a time for a matrix
 */
void printCBitMatrix(CBitMatrix const *m, bool ranges);

#if defined(__x86_64__) || defined(__aarch64__)
static_assert(sizeof(CBitMask) == 24, "processes linked earlier rely on it");
static_assert(sizeof(CBitMatrix) == 40, "processes linked earlier rely on it");
#endif
#pragma GCC visibility pop

#endif
