#include "powers/reciprocal_logarithms.hpp"

#include "frame/description/real.hpp"

namespace tuvo {

RawTable reciprocal_logarithms() {
    RawTable table{.lane = Lane::f64, .fields = 1, .patterns = {}};
    for (int r = 512; r < 1024; ++r)
        table.patterns.push_back((-log(Real(r) / (r > 724 ? 1024 : 512))).to_pattern(Lane::f64));
    table.patterns.push_back(0);
    return table;
}

}  // namespace tuvo
