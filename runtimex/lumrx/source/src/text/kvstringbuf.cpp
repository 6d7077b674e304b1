// KvStringBuf: line reading from a byte stream in the encoding of its byte order mark.
#include "kvstring.h"

#include "kvrxruntime.h"
#include "lumosbase.h"
#include "lumstreambuf.h"

namespace {

struct EncodingInfo {
    int markBytes;
    int elementSize;
};

// By KvStringBuf::StreamEncoding.
constexpr EncodingInfo kEncodings[] = {{0, 1}, {0, 1}, {3, 1}, {2, 2}, {2, 2}, {4, 4}, {4, 4}};

int detectEncoding(LumStreamBuf* stream) {
    unsigned char bytes[4] = {1, 0, 0, 0};
    stream->read(bytes, 4);
    stream->seek(0, LumStreamBuf::kFromStart);
    uint32_t word = bytes[0] | uint32_t(bytes[1]) << 8 | uint32_t(bytes[2]) << 16 | uint32_t(bytes[3]) << 24;
    if (word == 1) return KvStringBuf::kStreamNone;
    if ((word & 0xFFFFFF) == 0xBFBBEF) return KvStringBuf::kStreamUtf8;
    if (word == 0x0000FEFF) return KvStringBuf::kStreamUtf32Le;
    if (word == 0xFFFE0000) return KvStringBuf::kStreamUtf32Be;
    if ((word & 0xFFFF) == 0xFEFF) return KvStringBuf::kStreamUtf16Le;
    if ((word & 0xFFFF) == 0xFFFE) return KvStringBuf::kStreamUtf16Be;
    return KvStringBuf::kStreamPlain;
}

}  // namespace

KvRxClass* KvStringBuf::gpDesc = nullptr;

KvRxClass* KvStringBuf::desc() { return gpDesc ? gpDesc : kvrxDescShort(gpDesc, u"KvStringBuf"); }

KvRxClass* KvStringBuf::isA() const { return desc(); }

KvStringBuf* KvStringBuf::cast(const KvRxObject* object) {
    return static_cast<KvStringBuf*>(kvrxCastTo(object, desc()));
}

KvStringBuf::KvStringBuf() : mStream(nullptr), mEncoding(kStreamNone) {}

KvStringBuf::~KvStringBuf() { delete mStream; }

void KvStringBuf::init(LumStreamBuf* stream) {
    mStream = stream;
    mEncoding = stream ? detectEncoding(stream) : kStreamNone;
}

// One element in the stream's byte order; a short read at the end leaves zero bytes.
uint32_t KvStringBuf::readElement(int size) {
    unsigned char b[4] = {};
    if (size == 1) {
        int c = mStream->getByte();
        return c < 0 ? 0 : uint32_t(c);
    }
    mStream->read(b, size_t(size));
    switch (mEncoding) {
    case kStreamUtf16Le:
        return b[0] | uint32_t(b[1]) << 8;
    case kStreamUtf16Be:
        return b[1] | uint32_t(b[0]) << 8;
    case kStreamUtf32Le:
        return b[0] | uint32_t(b[1]) << 8 | uint32_t(b[2]) << 16 | uint32_t(b[3]) << 24;
    default:
        return b[3] | uint32_t(b[2]) << 8 | uint32_t(b[1]) << 16 | uint32_t(b[0]) << 24;
    }
}

// A CR or LF ends the line; one more CR or LF right behind it belongs to the line end.
bool KvStringBuf::atLineEnd(uint32_t element, int size) {
    if (element != 10 && element != 13) return false;
    if (!mStream->atEnd()) {
        uint32_t next = readElement(size);
        if (next != 10 && next != 13) mStream->seek(-size, LumStreamBuf::kFromCurrent);
    }
    return true;
}

KvString KvStringBuf::getString() {
    KvString line;
    if (!mStream) return line;
    const EncodingInfo& info = kEncodings[mEncoding];
    if (mStream->position() == 0 && info.markBytes) mStream->seek(info.markBytes, LumStreamBuf::kFromStart);
    LumVector<char> bytes;
    LumVector<char16_t> units;
    while (!mStream->atEnd()) {
        uint32_t element = readElement(info.elementSize);
        if (atLineEnd(element, info.elementSize)) break;
        if (info.elementSize == 1) bytes.append(char(element));
        else if (element != 0) units.append(info.elementSize == 4 && element >= 0xFFFF ? u'?' : char16_t(element));
    }
    if (info.elementSize > 1) {
        units.append(0);
        return line.assign(units.asArrayPtr());
    }
    if (mEncoding == kStreamUtf8) {
        LumCharMapper::utf8ToUnicode(bytes.asArrayPtr(), bytes.length(), units);
    } else {
        bytes.append(0);
        LumCharMapper::multiByteToWideChar(LumCodePageMapper::CODE_PAGE_ANSI_1252, bytes.asArrayPtr(),
                                           bytes.length(), units);
    }
    return line.assign(units.asArrayPtr());
}
