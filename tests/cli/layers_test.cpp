// Pictures that no file format brings yet, as the commands show, select and flatten them.

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex>

#include "formats.h"
#include "report.h"
#include "selection.h"
#include "support/layer_tree.h"
#include "support/results.h"
#include "treetext.h"

#include "orvik/host.h"

namespace orvik::cli {

namespace {

using testing::HasSubstr;

/// Over a red bottom lie a folder with a masked green layer at half opacity, and a hidden blue layer on top.
class LayersTest : public testing::Test {
protected:
    LayersTest() {
        _picture.texture = LayerTree::MakeTexture();
        _picture.format = FindFormat("png")->GetFileFormat();
        _image = LayerTree::AddImage(_picture.texture, {.width = kWidth, .height = kHeight}, LayerTree::Plain(1, 1, 1));
        // The first child is the topmost.
        NodeSpec spec = {.name = "Hidden", .width = kWidth, .height = kHeight, .enabled = false};
        LayerTree::AddLayer(_image, spec, LayerTree::Plain(0, 0, 1));
        const ImageRef folder = LayerTree::AddFolder(_image, {.name = "Folder"});
        spec = {.name = "Green", .width = kWidth, .height = kHeight, .opacity = 0.5, .mode = blendmodes::kMultiply};
        const ImageRef green = LayerTree::AddLayer(folder, spec, LayerTree::Plain(0, 1, 0));
        spec = {.name = "Mask", .width = kWidth, .height = kHeight, .format = pixelformats::kAlphaU8};
        LayerTree::AddMask(green, spec, [](Int x, Int) { return std::array{0.0, 0.0, 0.0, x < 2 ? 1.0 : 0.0}; });
        LayerTree::AddLayer(_image, {.name = "Red", .width = kWidth, .height = kHeight}, LayerTree::Plain(1, 0, 0));
    }

    /// RGBA of the first row of a flattened selection.
    std::vector<int> FirstRow(const SelectionOptions& options) {
        const Result<Selection> selection = Select(_picture, options);
        const Result<ImageTextureRef> flat = Flatten(*selection);
        EXPECT_EQ(MessageOf(flat), "");
        const ImageBaseRef image = *GetImages(*flat, IMAGEHIERARCHY::IMAGE)->begin();
        RowsWish wish;
        wish.format = PixelFormats::Get(pixelformats::kRgbaU8);
        NodeRows rows = NodeRows::Create(image, wish).TakeValue();
        std::vector<int> values;
        std::ranges::transform(rows.Read(0).TakeValue(), std::back_inserter(values), std::to_integer<int>);
        return values;
    }
    std::string DrawTree() { return Draw(Describe("layers.psd", _picture).TakeValue(), _picture.format); }
    std::string SelectionError(const SelectionOptions& options) { return MessageOf(Select(_picture, options)); }

    static constexpr Int kWidth = 3, kHeight = 2;
    const Result<Host> _host = Host::Start();
    Picture _picture;
    ImageRef _image;
};

TEST_F(LayersTest, TreeShowsEveryNodeAndItsLook) {
    const NodeSpec small{.name = "Level", .width = 1, .height = 1};
    LayerTree::AddImage(_picture.texture, small, LayerTree::Plain(0, 0, 1));
    const std::string text = DrawTree();
    for (const char* line :
         {"├─ layer \"Hidden\"  3 x 2  rgba.u8  hidden\n", "├─ folder \"Folder\"\n",
          "└─ layer \"Green\"  3 x 2  rgba.u8  multiply, 50 %\n", "└─ layermask \"Mask\"  3 x 2  alpha.u8\n",
          "└─ layer \"Red\"  3 x 2  rgba.u8\n", "└─ image \"Level\"  1 x 1  rgba.u8\n"})
        EXPECT_THAT(text, HasSubstr(line));
}

TEST_F(LayersTest, FilesWithoutImagesAreShownAndNamedInErrors) {
    _picture.texture = LayerTree::MakeTexture();
    EXPECT_EQ(DrawTree(), "layers.psd  png\n");
    EXPECT_EQ(SelectionError({}), "the file holds no image");
    Report report;
    EXPECT_TRUE(report.Add(Describe("sound.wav", _picture).TakeValue(), _picture));
}

TEST_F(LayersTest, SelectionsByPath) {
    const std::vector<int> white = {255, 255, 255, 255}, red = {255, 0, 0, 255}, green = {0, 255, 0, 255};
    const struct {
        SelectionOptions options;
        std::vector<int> left, right;  ///< first and last pixel
    } cases[] = {
        {{.image = 1}, white, white},
        {{.paths = {"Folder/Green"}}, green, green},
        {{.paths = {"Folder\\Green\\Mask"}}, white, {0, 0, 0, 255}},
        {{.composite = true}, {128, 0, 0, 255}, red},
        {{.paths = {"Red", "Hidden"}}, {0, 0, 255, 255}, {0, 0, 255, 255}},
        {{.paths = {"Red"}, .composite = true}, red, red},
        {{.paths = {"Folder/Green"}, .composite = true}, {0, 255, 0, 128}, {0, 0, 0, 0}},
    };
    for (const auto& [options, left, right] : cases) {
        const std::vector<int> row = FirstRow(options);
        ASSERT_EQ(row.size(), 12u);
        for (size_t i = 0; i < 4; ++i) {
            EXPECT_NEAR(row[i], left[i], 1) << testing::PrintToString(options.paths) << i;
            EXPECT_NEAR(row[8 + i], right[i], 1) << testing::PrintToString(options.paths) << i;
        }
    }
}

TEST_F(LayersTest, ErrorsNameWhatCannotBeSelected) {
    EXPECT_EQ(SelectionError({.paths = {"Folder"}}), "'Folder' has no pixels");
    EXPECT_THAT(SelectionError({.image = 2}), HasSubstr("there is no image 2; the file has 1"));
    EXPECT_THAT(SelectionError({.paths = {"Folder/Blue"}}), HasSubstr("image 1 has no node 'Folder/Blue'"));
    EXPECT_THAT(SelectionError({.paths = {"Red", "folder/green"}}), HasSubstr("image 1 has no node 'folder/green'"));
}

TEST_F(LayersTest, ReportHasAThumbnailOfEveryNodeAndOfTheComposite) {
    Report report;
    ASSERT_TRUE(report.Add(Describe("layers.psd", _picture).TakeValue(), _picture));
    const std::string file = testing::TempDir() + "layers_report.html";
    ASSERT_TRUE(report.Write(file));
    std::ifstream stream(file);
    const std::string page((std::istreambuf_iterator<char>(stream)), {});
    for (const auto& [text, count] : {std::pair("data:image/png;base64,", 6),  // the image, its composite, four nodes
                                      {"no pixels", 1},                        // the folder
                                      {"<div class=\"thumb hidden\">", 1},
                                      {"<span class=\"look\">50 %</span>", 1}}) {
        const std::regex pattern(text);
        EXPECT_EQ(std::distance(std::sregex_iterator(page.begin(), page.end(), pattern), {}), count) << text;
    }
}

}  // namespace

}  // namespace orvik::cli
