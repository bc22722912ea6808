#include "host/recording/compression.h"

#include <zstd.h>

#include <new>

#include "host/recording/bytes.h"

namespace host {

Compressor::Compressor() : context_(ZSTD_createCCtx(), ZSTD_freeCCtx) {
  if (context_ == nullptr) {
    throw std::bad_alloc();
  }
}

Compressor::~Compressor() = default;

std::string_view Compressor::compressed(std::string_view bytes) {
  constexpr int fastLevel = 1;
  result_.resize(ZSTD_compressBound(bytes.size()));
  const std::size_t size = ZSTD_compressCCtx(context_.get(), result_.data(), result_.size(),
                                             bytes.data(), bytes.size(), fastLevel);
  if (ZSTD_isError(size) != 0) {
    throw std::bad_alloc();
  }
  return std::string_view(result_).substr(0, size);
}

std::string decompressed(std::string_view bytes, std::size_t size) {
  std::string result(size, '\0');
  if (ZSTD_decompress(result.data(), size, bytes.data(), bytes.size()) != size) {
    throw RecordingFault("a chunk cannot be decompressed");
  }
  return result;
}

}  // namespace host
