#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

struct ZSTD_CCtx_s;

namespace host {

/// Compresses with zstd, fast rather than far.
class Compressor {
 public:
  Compressor();
  ~Compressor();

  Compressor(const Compressor&) = delete;
  Compressor& operator=(const Compressor&) = delete;

  /// Valid until the next call. Throws `std::bad_alloc`.
  std::string_view compressed(std::string_view bytes);

 private:
  std::unique_ptr<ZSTD_CCtx_s, std::size_t (*)(ZSTD_CCtx_s*)> context_;
  std::string result_;
};

/// What was compressed, which has this size. Throws `RecordingFault` when it has not.
std::string decompressed(std::string_view bytes, std::size_t size);

}  // namespace host
