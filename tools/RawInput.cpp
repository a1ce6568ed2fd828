// RawInput.cpp - raw pictures: bytes B, G, R, A, rows from the top, no head and no gaps.
#include "tools/Exit.h"
#include "tools/Input.h"

namespace vorn {

namespace {

class RawSource : public FrameSource {
public:
    RawSource(const std::string& fileName, uint32_t width, uint32_t height) : input(fileName) {
        name = input.Name();
        format.width = width;
        format.height = height;
        format.alpha = true;
        CheckPictureSize(name, format);
        pictureBytes = size_t(width) * height * 4;
        if (input.Seekable() && input.Position() <= input.Size())
            frames = (input.Size() - input.Position()) / pictureBytes;
    }

    ReadResult Read(uint8_t* bgra) override {
        const uint64_t place = input.Position();
        const ReadResult result = input.Read(bgra, pictureBytes);
        if (result == ReadResult::CUT)
            problem = input.error.empty() ? fmt::format("{}: ends in frame {}: {} of its {} bytes", name, count,
                                                        input.Position() - place, pictureBytes)
                                          : fmt::format("{}: can't be read in frame {} ({})", name, count, input.error);
        if (result == ReadResult::DONE) count++;
        return result;
    }

private:
    ByteInput input;
    size_t pictureBytes;
    uint64_t count = 0;
};

} // namespace

std::unique_ptr<FrameSource> OpenRaw(const std::string& name, uint32_t width, uint32_t height) {
    return std::make_unique<RawSource>(name, width, height);
}

} // namespace vorn
