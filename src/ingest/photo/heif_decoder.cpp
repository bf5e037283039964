#include <libheif/heif.h>

#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>

#include "ingest/photo/exif.h"
#include "ingest/photo/image_decoders.h"

namespace quor {
namespace {

struct HeifDeleter {
  void operator()(heif_context* context) const { heif_context_free(context); }
  void operator()(heif_image_handle* handle) const { heif_image_handle_release(handle); }
  void operator()(heif_image* image) const { heif_image_release(image); }
  void operator()(heif_decoding_options* options) const { heif_decoding_options_free(options); }
};
using ContextPtr = std::unique_ptr<heif_context, HeifDeleter>;
using HandlePtr = std::unique_ptr<heif_image_handle, HeifDeleter>;
using ImagePtr = std::unique_ptr<heif_image, HeifDeleter>;
using OptionsPtr = std::unique_ptr<heif_decoding_options, HeifDeleter>;

void check(const heif_error& error) {
  if (error.code == heif_error_Memory_allocation_error) throw std::bad_alloc();
  if (error.code != heif_error_Ok) throw std::runtime_error(error.message);
}

PhotoInfo readInfo(const heif_image_handle* handle) {
  heif_item_id id = 0;
  if (heif_image_handle_get_list_of_metadata_block_IDs(handle, "Exif", &id, 1) < 1) return {};
  std::vector<uint8_t> block(heif_image_handle_get_metadata_size(handle, id));
  if (block.size() < 4 || heif_image_handle_get_metadata(handle, id, block.data()).code != heif_error_Ok) return {};
  // The first four bytes count those up to the TIFF structure.
  const size_t skip = size_t{block[0]} << 24 | size_t{block[1]} << 16 | size_t{block[2]} << 8 | size_t{block[3]};
  if (skip > block.size() - 4) return {};
  PhotoInfo info = parseExif(withoutExifMark(std::span(block).subspan(4 + skip)));
  info.orientation = 1;  // the decoder has applied it already, from the file's transformations
  return info;
}

FramePtr toFrame(const heif_image* image, bool alpha) {
  FramePtr frame = newFrame();
  frame->format = alpha ? AV_PIX_FMT_RGBA : AV_PIX_FMT_RGB24;
  frame->width = heif_image_get_width(image, heif_channel_interleaved);
  frame->height = heif_image_get_height(image, heif_channel_interleaved);
  if (av_frame_get_buffer(frame.get(), 0) < 0) throw std::bad_alloc();
  int stride = 0;
  const uint8_t* pixels = heif_image_get_plane_readonly(image, heif_channel_interleaved, &stride);
  if (!pixels) throw std::runtime_error("it holds no picture");
  const size_t bytes = static_cast<size_t>(frame->width) * (alpha ? 4 : 3);
  for (int y = 0; y < frame->height; ++y) {
    std::memcpy(frame->data[0] + std::ptrdiff_t{y} * frame->linesize[0], pixels + std::ptrdiff_t{y} * stride, bytes);
  }
  return frame;
}

}  // namespace

Picture decodeHeif(std::span<const uint8_t> file) {
  const ContextPtr context(heif_context_alloc());
  const OptionsPtr options(heif_decoding_options_alloc());
  if (!context || !options) throw std::bad_alloc();
  check(heif_context_read_from_memory_without_copy(context.get(), file.data(), file.size(), nullptr));
  heif_image_handle* primary = nullptr;
  check(heif_context_get_primary_image_handle(context.get(), &primary));
  const HandlePtr handle(primary);
  checkImageSize(heif_image_handle_get_width(handle.get()), heif_image_handle_get_height(handle.get()));

  options->convert_hdr_to_8bit = 1;
  options->strict_decoding = 1;
  const bool alpha = heif_image_handle_has_alpha_channel(handle.get()) &&
                     !heif_image_handle_is_premultiplied_alpha(handle.get());  // that lies on black already
  heif_image* decoded = nullptr;
  check(heif_decode_image(handle.get(), &decoded, heif_colorspace_RGB,
                          alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB, options.get()));
  const ImagePtr image(decoded);
  return {toFrame(image.get(), alpha), readInfo(handle.get())};
}

}  // namespace quor
