// Compressed buffers.
#include <ZKQ_general/zlib.h>
#include <string.h>

#include "strain.h"

namespace strain {
namespace {

std::string Compressible(Worker& worker)
{
    std::string content;
    const size_t size = 1 + worker.Below(60000);
    while (content.size() < size)
        content += worker.Maybe() ? worker.Bytes(worker.Below(100)) : std::string(worker.Below(500), 'r');
    return content;
}

void IntoOwn(Worker& worker)
{
    const std::string content = Compressible(worker);
    const Exact plain(content);
    long room = 0;
    worker.Must(ZKQGeneral_Zlib_CompressBuffer(plain.Data(), plain.Size(), nullptr, &room), "CompressBuffer's room");
    const Exact packed(static_cast<size_t>(room));
    worker.Must(ZKQGeneral_Zlib_CompressBuffer(plain.Data(), plain.Size(), packed.Data(), &room), "CompressBuffer");
    const Exact back(content.size());
    worker.Must(ZKQGeneral_Zlib_UnCompressBuffer(packed.Data(), room, back.Data(), back.Size()), "UnCompressBuffer");
    worker.Right(back.String(content.size()) == content, "what comes back");
}

void IntoNew(Worker& worker)
{
    const std::string content = Compressible(worker);
    const Exact plain(content);
    unsigned char* packed = nullptr;
    long packedLength = 0;
    worker.Must(ZKQGeneral_Zlib_CompressBufferEx(plain.Data(), plain.Size(), &packed, &packedLength) == 0,
                "CompressBufferEx");
    const Owned<unsigned char> owned(packed);
    unsigned char* back = nullptr;
    long length = 0;
    worker.Must(ZKQGeneral_Zlib_UnCompressBufferEx(packed, packedLength, &back, &length) == 0, "UnCompressBufferEx");
    const Owned<unsigned char> ownedBack(back);
    worker.Right(length == plain.Size() && memcmp(back, content.data(), content.size()) == 0, "what comes back");
}

} // namespace

void AddCompression(Operations& operations)
{
    operations.insert(operations.end(),
                      {{"zlib", "caller's buffers", IntoOwn, 3}, {"zlib", "library's buffers", IntoNew, 3}});
}

} // namespace strain
