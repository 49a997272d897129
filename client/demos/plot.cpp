#include "client/demos/plot.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <string_view>

namespace tuvo::client {
namespace {

// ---- Text ----------------------------------------------------------------------------------------------------------

/// Five by nine dots, rows from the top; the last two rows are for descenders.
struct Glyph {
    char character;
    std::string_view rows;
};

constexpr int glyph_width = 5, glyph_height = 9;

constexpr std::array<Glyph, 77> glyphs{{
    {'0', ".###. #...# #..## #.#.# ##..# #...# .###. ..... ....."},
    {'1', "..#.. .##.. ..#.. ..#.. ..#.. ..#.. .###. ..... ....."},
    {'2', ".###. #...# ....# ..##. .#... #.... ##### ..... ....."},
    {'3', ".###. #...# ....# ..##. ....# #...# .###. ..... ....."},
    {'4', "...#. ..##. .#.#. #..#. ##### ...#. ...#. ..... ....."},
    {'5', "##### #.... ####. ....# ....# #...# .###. ..... ....."},
    {'6', "..##. .#... #.... ####. #...# #...# .###. ..... ....."},
    {'7', "##### ....# ...#. ..#.. ..#.. .#... .#... ..... ....."},
    {'8', ".###. #...# #...# .###. #...# #...# .###. ..... ....."},
    {'9', ".###. #...# #...# .#### ....# ...#. .##.. ..... ....."},
    {'a', "..... ..... .###. ....# .#### #...# .#### ..... ....."},
    {'b', "#.... #.... #.##. ##..# #...# #...# ####. ..... ....."},
    {'c', "..... ..... .###. #.... #.... #...# .###. ..... ....."},
    {'d', "....# ....# .##.# #..## #...# #...# .#### ..... ....."},
    {'e', "..... ..... .###. #...# ##### #.... .###. ..... ....."},
    {'f', "..##. .#... ####. .#... .#... .#... .#... ..... ....."},
    {'g', "..... ..... .#### #...# #...# #...# .#### ....# .###."},
    {'h', "#.... #.... #.##. ##..# #...# #...# #...# ..... ....."},
    {'i', "..#.. ..... .##.. ..#.. ..#.. ..#.. .###. ..... ....."},
    {'j', "...#. ..... ..##. ...#. ...#. ...#. ...#. #..#. .##.."},
    {'k', "#.... #.... #..#. #.#.. ##... #.#.. #..#. ..... ....."},
    {'l', ".##.. ..#.. ..#.. ..#.. ..#.. ..#.. .###. ..... ....."},
    {'m', "..... ..... ##.#. #.#.# #.#.# #.#.# #.#.# ..... ....."},
    {'n', "..... ..... #.##. ##..# #...# #...# #...# ..... ....."},
    {'o', "..... ..... .###. #...# #...# #...# .###. ..... ....."},
    {'p', "..... ..... ####. #...# #...# #...# ####. #.... #...."},
    {'q', "..... ..... .#### #...# #...# #...# .#### ....# ....#"},
    {'r', "..... ..... #.##. ##..# #.... #.... #.... ..... ....."},
    {'s', "..... ..... .#### #.... .###. ....# ####. ..... ....."},
    {'t', ".#... .#... ####. .#... .#... .#..# ..##. ..... ....."},
    {'u', "..... ..... #...# #...# #...# #..## .##.# ..... ....."},
    {'v', "..... ..... #...# #...# #...# .#.#. ..#.. ..... ....."},
    {'w', "..... ..... #...# #.#.# #.#.# #.#.# .#.#. ..... ....."},
    {'x', "..... ..... #...# .#.#. ..#.. .#.#. #...# ..... ....."},
    {'y', "..... ..... #...# #...# #...# #...# .#### ....# .###."},
    {'z', "..... ..... ##### ...#. ..#.. .#... ##### ..... ....."},
    {'A', ".###. #...# #...# ##### #...# #...# #...# ..... ....."},
    {'B', "####. #...# #...# ####. #...# #...# ####. ..... ....."},
    {'C', ".###. #...# #.... #.... #.... #...# .###. ..... ....."},
    {'D', "####. #...# #...# #...# #...# #...# ####. ..... ....."},
    {'E', "##### #.... #.... ####. #.... #.... ##### ..... ....."},
    {'F', "##### #.... #.... ####. #.... #.... #.... ..... ....."},
    {'G', ".###. #...# #.... #.### #...# #...# .#### ..... ....."},
    {'H', "#...# #...# #...# ##### #...# #...# #...# ..... ....."},
    {'I', ".###. ..#.. ..#.. ..#.. ..#.. ..#.. .###. ..... ....."},
    {'J', "..### ...#. ...#. ...#. ...#. #..#. .##.. ..... ....."},
    {'K', "#...# #..#. #.#.. ##... #.#.. #..#. #...# ..... ....."},
    {'L', "#.... #.... #.... #.... #.... #.... ##### ..... ....."},
    {'M', "#...# ##.## #.#.# #.#.# #...# #...# #...# ..... ....."},
    {'N', "#...# ##..# #.#.# #.#.# #..## #...# #...# ..... ....."},
    {'O', ".###. #...# #...# #...# #...# #...# .###. ..... ....."},
    {'P', "####. #...# #...# ####. #.... #.... #.... ..... ....."},
    {'Q', ".###. #...# #...# #...# #.#.# #..#. .##.# ..... ....."},
    {'R', "####. #...# #...# ####. #.#.. #..#. #...# ..... ....."},
    {'S', ".#### #.... #.... .###. ....# ....# ####. ..... ....."},
    {'T', "##### ..#.. ..#.. ..#.. ..#.. ..#.. ..#.. ..... ....."},
    {'U', "#...# #...# #...# #...# #...# #...# .###. ..... ....."},
    {'V', "#...# #...# #...# #...# #...# .#.#. ..#.. ..... ....."},
    {'W', "#...# #...# #...# #.#.# #.#.# #.#.# .#.#. ..... ....."},
    {'X', "#...# #...# .#.#. ..#.. .#.#. #...# #...# ..... ....."},
    {'Y', "#...# #...# .#.#. ..#.. ..#.. ..#.. ..#.. ..... ....."},
    {'Z', "##### ....# ...#. ..#.. .#... #.... ##### ..... ....."},
    {' ', "..... ..... ..... ..... ..... ..... ..... ..... ....."},
    {'.', "..... ..... ..... ..... ..... .##.. .##.. ..... ....."},
    {',', "..... ..... ..... ..... ..... .##.. .##.. ..#.. .#..."},
    {':', "..... .##.. .##.. ..... .##.. .##.. ..... ..... ....."},
    {'_', "..... ..... ..... ..... ..... ..... ##### ..... ....."},
    {'-', "..... ..... ..... .###. ..... ..... ..... ..... ....."},
    {'+', "..... ..#.. ..#.. ##### ..#.. ..#.. ..... ..... ....."},
    {'=', "..... ..... ##### ..... ##### ..... ..... ..... ....."},
    {'/', "....# ....# ...#. ..#.. .#... #.... #.... ..... ....."},
    {'(', "...#. ..#.. .#... .#... .#... ..#.. ...#. ..... ....."},
    {')', ".#... ..#.. ...#. ...#. ...#. ..#.. .#... ..... ....."},
    {'%', "##..# ##..# ...#. ..#.. .#... #..## #..## ..... ....."},
    {'~', "..... ..... .#... #.#.# ...#. ..... ..... ..... ....."},
    {'#', ".#.#. .#.#. ##### .#.#. ##### .#.#. .#.#. ..... ....."},
    {'?', ".###. #...# ....# ..##. ..#.. ..... ..#.. ..... ....."},
}};

const Glyph& glyph_of(char character) {
    auto find = [](char wanted) {
        auto is_wanted = [&](const Glyph& glyph) { return glyph.character == wanted; };
        return std::find_if(glyphs.begin(), glyphs.end(), is_wanted);
    };
    const auto found = find(character);
    return found == glyphs.end() ? *find('?') : *found;
}

struct TextStyle {
    int scale;  ///< pixels of a dot
    Colour colour;
};

int text_width(std::string_view text, int scale) { return static_cast<int>(text.size()) * (glyph_width + 1) * scale; }

void fill(Image& image, int left, int top, int width, int height, Colour colour) {
    for (int y = std::max(top, 0); y < std::min(top + height, image.height); ++y)
        for (int x = std::max(left, 0); x < std::min(left + width, image.width); ++x) image.at(x, y) = colour;
}

/// Calls `dot(column, row)` for each dot of the text, in dots from its top left corner.
template <typename Dot>
void for_each_dot(std::string_view text, Dot dot) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const std::string_view rows = glyph_of(text[i]).rows;
        for (int row = 0; row < glyph_height; ++row)
            for (int column = 0; column < glyph_width; ++column)
                if (rows[static_cast<std::size_t>(row * (glyph_width + 1) + column)] == '#')
                    dot(static_cast<int>(i) * (glyph_width + 1) + column, row);
    }
}

void draw_text(Image& image, int left, int top, std::string_view text, TextStyle style) {
    for_each_dot(text, [&](int column, int row) {
        fill(image, left + column * style.scale, top + row * style.scale, style.scale, style.scale, style.colour);
    });
}

/// Text that reads upward; `bottom` is where it starts.
void draw_text_upward(Image& image, int left, int bottom, std::string_view text, TextStyle style) {
    for_each_dot(text, [&](int column, int row) {
        const int x = left + row * style.scale, y = bottom - (column + 1) * style.scale;
        fill(image, x, y, style.scale, style.scale, style.colour);
    });
}

// ---- The chart -----------------------------------------------------------------------------------------------------

constexpr Colour paper{255, 255, 255}, ink{40, 44, 52}, grid{205, 210, 218}, area{219, 232, 245}, band{160, 196, 230},
    line{24, 90, 157}, dash{204, 82, 42};
constexpr int image_width = 1280, image_height = 520, left = 90, right = 40, top = 70, bottom = 80;
constexpr int chart_width = image_width - left - right, chart_height = image_height - top - bottom;
constexpr double full_scale = 8.0;
constexpr TextStyle small_text{2, ink}, title_text{3, ink};

int row_of(double bits) {
    const double share = std::clamp(std::isfinite(bits) ? bits / full_scale : 0.0, 0.0, 1.0);
    return top + static_cast<int>(std::lround((1.0 - share) * (chart_height - 1)));
}

struct Column {
    float lowest, highest, mean;
};

/// The blocks under a column of pixels: at least one.
Column summarise(const Plot& plot, int x) {
    const std::uint64_t first = plot.length * static_cast<std::uint64_t>(x) / chart_width / plot.step;
    const std::uint64_t next = plot.length * static_cast<std::uint64_t>(x + 1) / chart_width / plot.step;
    Column column{plot.values[first], plot.values[first], 0.0f};
    const std::uint64_t last = std::clamp<std::uint64_t>(next, first + 1, plot.values.size());
    for (std::uint64_t i = first; i < last; ++i) {
        column.lowest = std::min(column.lowest, plot.values[i]);
        column.highest = std::max(column.highest, plot.values[i]);
        column.mean += plot.values[i] / static_cast<float>(last - first);
    }
    return column;
}

struct Unit {
    std::uint64_t bytes;
    const char* name;
};

Unit unit_of(std::uint64_t length) {
    if (length >= std::uint64_t{4} << 30) return {std::uint64_t{1} << 30, "GiB"};
    if (length >= std::uint64_t{4} << 20) return {std::uint64_t{1} << 20, "MiB"};
    if (length >= std::uint64_t{4} << 10) return {std::uint64_t{1} << 10, "KiB"};
    return {1, "bytes"};
}

/// The smallest of 1, 2, 5 times a power of ten that makes at most ten intervals of the range; at least 1.
double tick_interval(double range) {
    double power = 1.0;
    for (;; power *= 10.0)
        for (double factor : {1.0, 2.0, 5.0})
            if (range <= 10.0 * factor * power) return factor * power;
}

void draw_axes(Image& image, const Plot& plot) {
    const int floor = top + chart_height;
    for (int bits = 0; bits <= 8; bits += 2) {
        const std::string label = std::to_string(bits);
        draw_text(image, left - 12 - text_width(label, 2), row_of(bits) - 6, label, small_text);
        fill(image, left - 6, row_of(bits), 6, 1, ink);
    }
    const Unit unit = unit_of(plot.length);
    const double range = static_cast<double>(plot.length) / static_cast<double>(unit.bytes);
    const double interval = tick_interval(range);
    for (double tick = 0.0; tick <= range; tick += interval) {
        const int x = left + static_cast<int>(std::lround(tick / range * (chart_width - 1)));
        const std::string label = std::to_string(std::llround(tick));
        fill(image, x, floor, 1, 7, ink);
        draw_text(image, x - text_width(label, 2) / 2 + 1, floor + 14, label, small_text);
    }
    const std::string offset = std::string("offset, ") + unit.name;
    draw_text(image, left + (chart_width - text_width(offset, 2)) / 2, floor + 44, offset, small_text);
    const std::string bits_label = "bits per byte";
    draw_text_upward(image, 20, top + (chart_height + text_width(bits_label, 2)) / 2, bits_label, small_text);
    fill(image, left, floor, chart_width, 1, ink);
    fill(image, left - 1, top, 1, chart_height + 1, ink);
}

void draw_values(Image& image, const Plot& plot) {
    constexpr int thickness = 2;
    std::vector<int> means;
    for (int x = 0; x < chart_width; ++x) {
        const Column column = summarise(plot, x);
        means.push_back(row_of(static_cast<double>(column.mean)));
        const int highest = row_of(static_cast<double>(column.highest));
        const int lowest = row_of(static_cast<double>(column.lowest));
        fill(image, left + x, means.back(), 1, top + chart_height - means.back(), area);
        fill(image, left + x, highest, 1, lowest - highest + 1, band);
    }
    for (int bits = 2; bits <= 8; bits += 2)
        for (int x = left; x < left + chart_width; x += 4) fill(image, x, row_of(bits), 2, 1, grid);
    for (std::size_t x = 0; x < means.size(); ++x) {
        const auto [from, to] = std::minmax(means[x == 0 ? 0 : x - 1], means[x]);
        fill(image, left + static_cast<int>(x), from, 1, to - from + thickness, line);
    }
}

}  // namespace

Image draw_plot(const Plot& plot) {
    Image image(image_width, image_height, paper);
    draw_values(image, plot);
    for (int x = left; x < left + chart_width; x += 12)
        fill(image, x, row_of(static_cast<double>(plot.level)), 7, 2, dash);
    draw_axes(image, plot);

    std::array<char, 48> level;
    std::snprintf(level.data(), level.size(), "%.3f bits per byte in all", static_cast<double>(plot.level));
    const int level_left = image_width - right - text_width(level.data(), 2);
    const int title_room = (level_left - left - 20) / text_width("x", title_text.scale);
    const std::string title = plot.title.substr(0, static_cast<std::size_t>(title_room));
    draw_text(image, left, 24, title, title_text);
    draw_text(image, level_left, 30, level.data(), {2, dash});
    return image;
}

}  // namespace tuvo::client
