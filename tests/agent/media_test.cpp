// The reference agent's media kinds; its catalogue is tested end to end, through the library.
#include <gtest/gtest.h>

#include "media_types.h"

namespace wrenlink::test {
namespace {

TEST(MediaTypes, KindAndMimeComeFromTheExtensionWhateverItsCase) {
    using reference_agent::MediaKind;
    EXPECT_EQ(reference_agent::media_kind_of("/a/B.JpG"), MediaKind::Image);
    EXPECT_EQ(reference_agent::media_kind_of("x.flac"), MediaKind::Music);
    EXPECT_EQ(reference_agent::media_kind_of("x.3gp"), MediaKind::Video);
    EXPECT_EQ(reference_agent::media_kind_of("x.txt"), std::nullopt);
    EXPECT_EQ(reference_agent::media_kind_of("dir.jpg/file"), std::nullopt);
    EXPECT_EQ(reference_agent::media_kind_of("jpg"), std::nullopt);
    EXPECT_EQ(reference_agent::mime_type_of("a.MP4"), "video/mp4");
    EXPECT_EQ(reference_agent::mime_type_of("a.pdf"), "application/pdf");
    EXPECT_EQ(reference_agent::mime_type_of("a.unknown"), "application/octet-stream");
}

}  // namespace
}  // namespace wrenlink::test
