#include "lumstreambuf.h"

#include "lumosbase.h"
#include "lumplatform/text.h"

#include <cstdio>
#include <string>

LumStreamBuf::~LumStreamBuf() = default;

namespace {

// The target of a seek, or -1 when it lies outside 0 to `size`.
int64_t seekTarget(int64_t pos, int64_t size, int64_t offset, int origin) {
    int64_t base = origin == LumStreamBuf::kFromStart ? 0 : origin == LumStreamBuf::kFromCurrent ? pos : -1;
    if (base < 0 || offset < -base || offset > size - base) return -1;
    return base + offset;
}

}  // namespace

LumMemoryStreamBuf::LumMemoryStreamBuf(const void* data, size_t size)
    : m_data(size ? static_cast<unsigned char*>(_lumMalloc(size)) : nullptr), m_size(size), m_pos(0) {
    if (m_data) std::memcpy(m_data, data, size);
    else m_size = 0;
}

LumMemoryStreamBuf::~LumMemoryStreamBuf() {
    if (m_data) _lumFree(m_data);
}

bool LumMemoryStreamBuf::atEnd() const { return m_pos >= m_size; }

int64_t LumMemoryStreamBuf::position() const { return int64_t(m_pos); }

bool LumMemoryStreamBuf::seek(int64_t offset, int origin) {
    int64_t target = seekTarget(int64_t(m_pos), int64_t(m_size), offset, origin);
    if (target < 0) return false;
    m_pos = size_t(target);
    return true;
}

int LumMemoryStreamBuf::getByte() { return m_pos < m_size ? m_data[m_pos++] : -1; }

size_t LumMemoryStreamBuf::read(void* buffer, size_t count) {
    size_t n = count < m_size - m_pos ? count : m_size - m_pos;
    if (n) std::memcpy(buffer, m_data + m_pos, n);
    m_pos += n;
    return n;
}

LumFileStreamBuf* LumFileStreamBuf::open(const char16_t* path) {
    if (!path || !*path) return nullptr;
    std::FILE* f = std::fopen(lumplatform::toUtf8(path).c_str(), "rb");
    if (!f) return nullptr;
    long size = -1;
    if (std::fseek(f, 0, SEEK_END) == 0) size = std::ftell(f);
    if (size < 0 || std::fseek(f, 0, SEEK_SET) != 0) {
        std::fclose(f);
        return nullptr;
    }
    return new LumFileStreamBuf(f, size);
}

LumFileStreamBuf::LumFileStreamBuf(void* file, int64_t size) : m_file(file), m_size(size), m_pos(0) {}

LumFileStreamBuf::~LumFileStreamBuf() { std::fclose(static_cast<std::FILE*>(m_file)); }

bool LumFileStreamBuf::atEnd() const { return m_pos >= m_size; }

int64_t LumFileStreamBuf::position() const { return m_pos; }

bool LumFileStreamBuf::seek(int64_t offset, int origin) {
    int64_t target = seekTarget(m_pos, m_size, offset, origin);
    if (target < 0 || std::fseek(static_cast<std::FILE*>(m_file), long(target), SEEK_SET) != 0)
        return false;
    m_pos = target;
    return true;
}

int LumFileStreamBuf::getByte() {
    int c = std::fgetc(static_cast<std::FILE*>(m_file));
    if (c == EOF) return -1;
    ++m_pos;
    return c;
}

size_t LumFileStreamBuf::read(void* buffer, size_t count) {
    size_t n = std::fread(buffer, 1, count, static_cast<std::FILE*>(m_file));
    m_pos += int64_t(n);
    return n;
}
