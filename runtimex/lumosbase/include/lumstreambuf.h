// LumStreamBuf: a byte stream that can be read, positioned and asked for its end, with
// two kinds: over a file and over a block of memory. Streams are made with new and
// destroyed through the virtual destructor by whoever owns them.
#pragma once

#include <cstddef>
#include <cstdint>

class LumStreamBuf {
public:
    enum SeekOrigin { kFromStart = 0, kFromCurrent = 1 };

    virtual ~LumStreamBuf();
    // True when no byte is left.
    virtual bool atEnd() const = 0;
    virtual int64_t position() const = 0;
    // Moves to `offset` from the origin; false (position unchanged) outside 0 to the size.
    virtual bool seek(int64_t offset, int origin) = 0;
    // The next byte, 0 to 255, or -1 at the end.
    virtual int getByte() = 0;
    // Reads up to `count` bytes; returns the bytes read.
    virtual size_t read(void* buffer, size_t count) = 0;

protected:
    LumStreamBuf() = default;
    LumStreamBuf(const LumStreamBuf&) = delete;
    LumStreamBuf& operator=(const LumStreamBuf&) = delete;
};

// A stream over an own copy of a block of bytes (the copy is owned, _lumMalloc).
class LumMemoryStreamBuf : public LumStreamBuf {
public:
    LumMemoryStreamBuf(const void* data, size_t size);
    ~LumMemoryStreamBuf() override;
    // False if the copy couldn't be made; the stream is then empty.
    bool isValid() const { return m_data != nullptr || m_size == 0; }

    bool atEnd() const override;
    int64_t position() const override;
    bool seek(int64_t offset, int origin) override;
    int getByte() override;
    size_t read(void* buffer, size_t count) override;

private:
    unsigned char* m_data;
    size_t m_size;
    size_t m_pos;
};

// A stream over a file opened for reading (the file handle is owned, closed at
// destruction). The file's size is taken at opening.
class LumFileStreamBuf : public LumStreamBuf {
public:
    // Opens `path` (a native path); null if it can't be opened.
    static LumFileStreamBuf* open(const char16_t* path);
    ~LumFileStreamBuf() override;

    bool atEnd() const override;
    int64_t position() const override;
    bool seek(int64_t offset, int origin) override;
    int getByte() override;
    size_t read(void* buffer, size_t count) override;

private:
    LumFileStreamBuf(void* file, int64_t size);
    void* m_file;
    int64_t m_size;
    int64_t m_pos;
};
