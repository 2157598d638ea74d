#include "capture/jpeg_frames.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
// jpeglib.h wants <cstdio> before it.
#include <jpeglib.h>

static constexpr size_t kBlockLines = 8;    // lines in a row of 4:2:2 blocks
static constexpr size_t kBlockPixels = 16;  // pixels in a block of 4:2:2 blocks
static constexpr int kQuality = 68;         // with the picture's grain: some 120 KB for 1280 x 720

struct PaddedPicture {
    Planes422 planes;  // padded to whole blocks
    std::vector<uint8_t> y, cb, cr;
};

static PaddedPicture MakePadded(size_t width, size_t height) {
    const size_t row = (width + kBlockPixels - 1) / kBlockPixels * kBlockPixels;
    const size_t lines = (height + kBlockLines - 1) / kBlockLines * kBlockLines;
    PaddedPicture picture = {.planes = {},
                             .y = std::vector<uint8_t>(row * lines, 16),
                             .cb = std::vector<uint8_t>(row / 2 * lines, 128),
                             .cr = std::vector<uint8_t>(row / 2 * lines, 128)};
    picture.planes = {.y = picture.y,
                      .cb = picture.cb,
                      .cr = picture.cr,
                      .width = width & ~size_t{1},
                      .height = height,
                      .lumaRow = row,
                      .chromaRow = row / 2};
    return picture;
}

static void FullRange(std::span<uint8_t> luma) {
    for (uint8_t& value : luma) value = static_cast<uint8_t>(std::clamp((value - 16) * 255 / 219, 0, 255));
}

static void WriteBlockRows(jpeg_compress_struct& jpeg, const Planes422& planes) {
    while (jpeg.next_scanline < jpeg.image_height) {
        std::array<JSAMPROW, kBlockLines> y{}, cb{}, cr{};
        for (size_t line = 0; line < kBlockLines; ++line) {
            const size_t at = jpeg.next_scanline + line;
            y[line] = planes.y.data() + at * planes.lumaRow;
            cb[line] = planes.cb.data() + at * planes.chromaRow;
            cr[line] = planes.cr.data() + at * planes.chromaRow;
        }
        std::array<JSAMPARRAY, 3> components = {y.data(), cb.data(), cr.data()};
        jpeg_write_raw_data(&jpeg, components.data(), kBlockLines);
    }
}

static std::vector<uint8_t> EncodeWhole(const Planes422& planes, size_t width, size_t height) {
    jpeg_compress_struct jpeg{};
    jpeg_error_mgr errors{};
    jpeg.err = jpeg_std_error(&errors);
    jpeg_create_compress(&jpeg);
    unsigned char* out = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&jpeg, &out, &size);
    jpeg.image_width = static_cast<JDIMENSION>(width);
    jpeg.image_height = static_cast<JDIMENSION>(height);
    jpeg.input_components = 3;
    jpeg.in_color_space = JCS_YCbCr;
    jpeg_set_defaults(&jpeg);
    jpeg_set_quality(&jpeg, kQuality, TRUE);
    jpeg.comp_info[0].h_samp_factor = 2;
    jpeg.comp_info[0].v_samp_factor = 1;
    jpeg.dct_method = JDCT_IFAST;
    jpeg.raw_data_in = TRUE;
    jpeg.restart_in_rows = 1;
    jpeg_start_compress(&jpeg, TRUE);
    WriteBlockRows(jpeg, planes);
    jpeg_finish_compress(&jpeg);
    jpeg_destroy_compress(&jpeg);
    std::vector<uint8_t> bytes(out, out + size);
    free(out);
    return bytes;
}

static constexpr uint8_t kStartOfScan = 0xda, kRestart0 = 0xd0, kEndOfImage = 0xd9;

// First byte after the scan header. Marker segments before it carry their length.
static size_t ScanStart(const std::vector<uint8_t>& jpeg) {
    size_t at = 2;
    while (at + 4 <= jpeg.size()) {
        const uint8_t marker = jpeg[at + 1];
        at += 2 + (static_cast<size_t>(jpeg[at + 2]) << 8 | jpeg[at + 3]);
        if (marker == kStartOfScan) break;
    }
    return at;
}

// Cuts the scan at its restart and end markers. A 0xff of the data itself is followed by 0.
static std::vector<std::vector<uint8_t>> ScanRows(const std::vector<uint8_t>& jpeg, size_t start) {
    std::vector<std::vector<uint8_t>> rows;
    size_t rowStart = start;
    for (size_t at = start; at + 1 < jpeg.size(); ++at) {
        if (jpeg[at] != 0xff || jpeg[at + 1] == 0) continue;
        rows.emplace_back(jpeg.begin() + static_cast<ptrdiff_t>(rowStart), jpeg.begin() + static_cast<ptrdiff_t>(at));
        rowStart = at + 2;
        ++at;
    }
    return rows;
}

std::optional<JpegStill> EncodeStill(PictureSource source, size_t width, size_t height) {
    if (width < 2 || height < 1 || width > JPEG_MAX_DIMENSION || height > JPEG_MAX_DIMENSION) return std::nullopt;
    PaddedPicture picture = MakePadded(width, height);
    DrawPicture(source, picture.planes);
    FullRange(picture.y);
    const std::vector<uint8_t> jpeg = EncodeWhole(picture.planes, width, height);
    const size_t scan = ScanStart(jpeg);
    const bool marked = width >= kMarkLeastWidth && height >= kMarkLeastHeight;
    return JpegStill{.width = width,
                     .height = height,
                     .markBlockRows = marked ? MarkRowLines(height) / kBlockLines : 0,
                     .header = {jpeg.begin(), jpeg.begin() + static_cast<ptrdiff_t>(scan)},
                     .rows = ScanRows(jpeg, scan)};
}

static std::vector<uint8_t> EncodeMarkRow(const PictureMark& mark, size_t row, size_t width) {
    PaddedPicture picture = MakePadded(width, kBlockLines);
    for (size_t line = 0; line < kBlockLines; ++line)
        DrawMarkLine(mark, row, picture.planes.y.subspan(line * picture.planes.lumaRow, width));
    FullRange(picture.y);
    const std::vector<uint8_t> jpeg = EncodeWhole(picture.planes, width, kBlockLines);
    return ScanRows(jpeg, ScanStart(jpeg)).at(0);
}

size_t SpliceJpeg(const JpegStill& still, const PictureMark& mark, std::span<uint8_t> out) {
    std::array<std::vector<uint8_t>, kMarkRows> markRows;
    if (still.markBlockRows > 0) {
        for (size_t row = 0; row < kMarkRows; ++row) markRows[row] = EncodeMarkRow(mark, row, still.width);
    }
    size_t size = 0;
    const auto append = [&](std::span<const uint8_t> bytes) {
        if (bytes.size() > out.size() - size) return false;
        std::ranges::copy(bytes, out.begin() + static_cast<ptrdiff_t>(size));
        size += bytes.size();
        return true;
    };
    if (!append(still.header)) return 0;
    for (size_t row = 0; row < still.rows.size(); ++row) {
        const bool ofMark = row < kMarkRows * still.markBlockRows;
        const bool last = row + 1 == still.rows.size();
        const std::array<uint8_t, 2> marker = {0xff, last ? kEndOfImage : static_cast<uint8_t>(kRestart0 + row % 8)};
        if (!append(ofMark ? markRows[row / still.markBlockRows] : still.rows[row]) || !append(marker)) return 0;
    }
    return size;
}
