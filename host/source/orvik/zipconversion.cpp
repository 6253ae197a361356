#include "orvik/zipconversion.h"

#include <algorithm>
#include <limits>
#include <zlib.h>

namespace orvik {

namespace {

/// The two directions of the library in the same words.
struct Deflate {
    static int Init(z_stream& stream, int level) { return deflateInit(&stream, level); }
    static int Step(z_stream& stream, bool isLast) { return deflate(&stream, isLast ? Z_FINISH : Z_NO_FLUSH); }
    static int Reset(z_stream& stream) { return deflateReset(&stream); }
    static int End(z_stream& stream) { return deflateEnd(&stream); }
};
struct Inflate {
    static int Init(z_stream& stream, int) { return inflateInit(&stream); }
    static int Step(z_stream& stream, bool) { return inflate(&stream, Z_NO_FLUSH); }
    static int Reset(z_stream& stream) { return inflateReset(&stream); }
    static int End(z_stream& stream) { return inflateEnd(&stream); }
};

Result<void> ToResult(int code) {
    switch (code) {
        case Z_OK:
        case Z_STREAM_END:
        case Z_BUF_ERROR:  // no progress was possible: the caller sees that
            return {};
        case Z_MEM_ERROR:
            return OutOfMemoryError();
        case Z_DATA_ERROR:
        case Z_NEED_DICT:
            return FileFormatError("The compressed data are damaged.");
        default:
            return UnexpectedError("zlib: error @", code);
    }
}

template <class Direction>
class ZipConversion : public StreamConversionInterface {
public:
    explicit ZipConversion(int level) {
        _stream.zalloc = [](void*, uInt count, uInt size) { return AllocateZeroed(size_t(count) * size); };
        _stream.zfree = [](void*, void* block) { Free(block); };
        _initialised = Direction::Init(_stream, level);
    }
    ~ZipConversion() override {
        if (_initialised == Z_OK)
            Direction::End(_stream);
    }
    Result<void> Construct() { return ToResult(_initialised); }

    Result<StreamConversionStep> Convert(Block<const std::byte> source, Block<std::byte> target, Bool isLast) override {
        constexpr size_t kMost = std::numeric_limits<uInt>::max();
        StreamConversionStep done;
        while (!done.finished) {
            const Block<const std::byte> from = source.subspan(static_cast<size_t>(done.consumed));
            const Block<std::byte> to = target.subspan(static_cast<size_t>(done.produced));
            const auto offered = static_cast<uInt>(std::min(from.size(), kMost));
            const auto room = static_cast<uInt>(std::min(to.size(), kMost));
            std::byte none{};  // the library wants an address even for no room
            _stream.next_in = reinterpret_cast<Bytef*>(const_cast<std::byte*>(from.data()));
            _stream.avail_in = offered;
            _stream.next_out = reinterpret_cast<Bytef*>(room ? to.data() : &none);
            _stream.avail_out = room;
            const int code = Direction::Step(_stream, isLast && offered == from.size());
            TRY(ToResult(code));
            done.consumed += offered - _stream.avail_in;
            done.produced += room - _stream.avail_out;
            done.finished = code == Z_STREAM_END;
            if (code == Z_BUF_ERROR || _stream.avail_out > 0 || static_cast<size_t>(done.produced) == target.size())
                break;
        }
        return done;
    }
    Result<void> Reset() override { return ToResult(Direction::Reset(_stream)); }

private:
    z_stream _stream{};
    int _initialised = Z_OK;
};

template <class Direction>
class ZipFactory : public FactoryInterface {
public:
    Result<ObjectRef> Create(const DataDictionary& settings) const override {
        const Int level = settings.Get(streamconversions::kLevel, Z_DEFAULT_COMPRESSION);
        if (level < Z_DEFAULT_COMPRESSION || level > Z_BEST_COMPRESSION)
            return IllegalArgumentError("There is no compression level @.", level);
        return ObjectRef(TRY(NewObj<ZipConversion<Direction>>(static_cast<int>(level))));
    }
};

}  // namespace

Result<void> PublishZipConversions(Publisher& publisher) {
    TRY(publisher.PublishObject(streamconversions::kZipEncoder, ObjectRef(TRY(NewObj<ZipFactory<Deflate>>()))));
    return publisher.PublishObject(streamconversions::kZipDecoder, ObjectRef(TRY(NewObj<ZipFactory<Inflate>>())));
}

}  // namespace orvik
