#include "bench/shapes.hpp"

#include <algorithm>

namespace tuvo {
namespace {

/// Appends the parts of a value to a record, each at a multiple of its size.
void append(std::vector<Shape::Part>& parts, int& record, Lane lane, int width, bool on_stack) {
    const int bytes = physical_lanes(width) * lane_size(lane);
    const bool general = width == 1 && !is_floating(lane) && !on_stack;
    const int part = std::min(bytes, 32);
    record = (record + part - 1) / part * part;
    for (int k = 0; k < bytes / part; ++k) {
        parts.push_back({part, general, record});
        record += part;
    }
}

int largest_part(const std::vector<Shape::Part>& parts) {
    int bytes = 4;
    for (const Shape::Part& part : parts) bytes = std::max(bytes, part.bytes);
    return bytes;
}

int rounded_up(int bytes, int unit) { return (bytes + unit - 1) / unit * unit; }

Shape make_shape(Shape::Kind kind, const Family& family, int width) {
    Shape shape;
    shape.kind = kind;
    for (Lane lane : family.arguments)
        append(shape.arguments, shape.input_bytes, lane, width, kind == Shape::Kind::memory);
    const bool packed = kind == Shape::Kind::registers && width == 1 && family.results.size() == 2;
    if (packed) {
        const bool general = !is_floating(family.results[0]);
        shape.results = {{2 * lane_size(family.results[0]), general, 0}};
        shape.output_bytes = shape.results[0].bytes;
    } else {
        for (Lane lane : kind == Shape::Kind::hidden ? family.outputs() : family.results)
            append(shape.results, shape.output_bytes, lane, width, kind != Shape::Kind::registers);
    }
    if (family.out && kind != Shape::Kind::hidden) {
        shape.out_pointer = true;
        shape.out_offset = rounded_up(shape.output_bytes, std::min(out_bytes(family, width), 32));
        shape.output_bytes = shape.out_offset + out_bytes(family, width);
    }
    shape.input_bytes = rounded_up(shape.input_bytes, largest_part(shape.arguments));
    shape.output_bytes =
        rounded_up(shape.output_bytes, std::max(largest_part(shape.results), shape.out_pointer ? 32 : 4));
    return shape;
}

std::string letters(const std::vector<Shape::Part>& parts) {
    std::string text;
    for (const Shape::Part& part : parts)
        text += part.general       ? (part.bytes == 4 ? 'i' : 'l')
                : part.bytes == 4  ? 's'
                : part.bytes == 8  ? 'd'
                : part.bytes == 16 ? 'x'
                                   : 'y';
    return text;
}

}  // namespace

std::string Shape::key() const {
    std::string text = kind == Kind::registers ? "registers" : kind == Kind::hidden ? "hidden" : "memory";
    text += '_' + letters(arguments) + '_' + letters(results);
    return out_pointer ? text + "_p" + std::to_string(output_bytes - out_offset) : text;
}

Shape shape_of(const Family& family, int width) {
    const bool memory = call_form(family, width) == Form::memory;
    return make_shape(memory ? Shape::Kind::memory : Shape::Kind::registers, family, width);
}

Shape hidden_shape_of(const Family& family, int width) { return make_shape(Shape::Kind::hidden, family, width); }

}  // namespace tuvo
