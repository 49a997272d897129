// Random programs for the generator: made-up descriptions of random operations, generated code against the interpreter,
// at all widths. TUVO_SEED repeats a run, TUVO_PROGRAMS sets how many,
// TUVO_SHOW prints the generated text.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

#include "tests/made_up.hpp"

namespace tuvo {
namespace {

/// Builds a description by drawing operations. Values of each type are kept in pools from which operands are drawn;
/// nothing is undefined, so every program is a valid one.
class RandomDescription {
public:
    explicit RandomDescription(std::uint64_t seed) : seed_(seed) {
        std::mt19937_64 random(seed);
        wide_ = random() % 2;
        rare_ = random() % 3 == 0;
        blocks_ = int(random() % 3);
        const Lane main = wide_ ? Lane::f64 : Lane::f32;
        const auto lane = [&] { return random() % 4 == 0 ? (wide_ && random() % 2 ? Lane::i64 : Lane::i32) : main; };
        arguments_.push_back(main);
        const int extra = int(random() % 3);
        for (int k = 0; k < extra; ++k) arguments_.push_back(lane());
        results_.push_back(lane());
        // A rare routine has room for four pointers.
        if (random() % 4 == 0) {
            if (random() % 2 && arguments_.size() < 3) results_ = {main, main};
            else if (arguments_.size() < 3 && std::all_of(arguments_.begin(), arguments_.end(), is_floating)) out_ = lane();
        }
    }

    MadeUp make(const std::string& name) const {
        Description description;
        for (Lane lane : arguments_) description.arguments.push_back(type_of(lane));
        description.body = [this](const std::vector<int>& nodes) { return Body(*this, nodes).run(); };
        return make_up(name, arguments_, results_, out_, rare_, blocks_, description);
    }

private:
    std::uint64_t seed_;
    bool wide_, rare_;
    int blocks_;
    std::vector<Lane> arguments_, results_;
    std::optional<Lane> out_;

    struct Pools {
        std::vector<F32> f;
        std::vector<F64> d;
        std::vector<I32> i;
        std::vector<I64> l;
        std::vector<M32> m;
        std::vector<M64> n;
    };

    struct Body {
        const RandomDescription& self;
        std::mt19937_64 random;
        Pools pools;

        Body(const RandomDescription& description, const std::vector<int>& nodes) : self(description), random(description.seed_ + 1) {
            for (std::size_t k = 0; k < nodes.size(); ++k) add(type_of(self.arguments_[k]), nodes[k]);
        }

        void add(Type type, int node) {
            switch (type) {
            case Type::f32: pools.f.push_back(F32(node, nullptr)); break;
            case Type::f64: pools.d.push_back(F64(node, nullptr)); break;
            case Type::i32: pools.i.push_back(I32(node, nullptr)); break;
            default: pools.l.push_back(I64(node, nullptr)); break;
            }
        }

        std::uint64_t below(std::uint64_t n) { return random() % n; }
        template <typename V> V pick(const std::vector<V>& pool) {
            // Late values mostly, so that chains grow, and early ones now and then, so that some live long.
            const std::size_t n = pool.size();
            return below(3) ? pool[n - 1 - below(std::min<std::size_t>(n, 4))] : pool[below(n)];
        }
        // A value of a type is made from another type where its pool is still empty.
        F32 f() {
            if (below(8) == 0) return f32(std::uint32_t(draw_pattern(Lane::f32, random)));
            if (pools.f.empty()) pools.f.push_back(self.wide_ ? to_f32(d()) : to_f32(i()));
            return pick(pools.f);
        }
        F64 d() {
            if (below(8) == 0) return f64(draw_pattern(Lane::f64, random));
            if (pools.d.empty()) pools.d.push_back(to_f64(f()));
            return pick(pools.d);
        }
        I32 i() {
            if (below(8) == 0) return i32(std::uint32_t(draw_pattern(Lane::i32, random)));
            if (pools.i.empty()) pools.i.push_back(self.wide_ ? high_word(d()) : bits(pick_float()));
            return pick(pools.i);
        }
        F32 pick_float() { return pools.f.empty() ? to_f32(d()) : pick(pools.f); }
        I64 l() {
            if (below(8) == 0) return i64(draw_pattern(Lane::i64, random));
            if (pools.l.empty()) pools.l.push_back(self.wide_ ? bits(pick_double()) : sign_extend(i()));
            return pick(pools.l);
        }
        F64 pick_double() { return pools.d.empty() ? to_f64(pick_float()) : pick(pools.d); }
        I32 value_i() { return pools.i.empty() ? i() : pick(pools.i); }
        M32 m() {
            if (pools.m.empty() || below(3) == 0) pools.m.push_back(below(2) ? compare32() : value_i() > i());
            return pick(pools.m);
        }
        M64 n() {
            if (pools.n.empty() || below(3) == 0) pools.n.push_back(below(3) ? compare64() : value_l() == l());
            return pick(pools.n);
        }
        I64 value_l() { return pools.l.empty() ? l() : pick(pools.l); }
        M32 compare32() { return below(2) ? pick_float() < f() : !(pick_float() >= f()); }
        M64 compare64() { return below(2) ? pick_double() <= d() : !(pick_double() > d()); }

        template <Type T> Value<T> float_operation(Value<T> a, Value<T> b) {
            switch (below(12)) {
            case 0: return a + b;
            case 1: return a - b;
            case 2: return a * b;
            case 3: return a / b;
            case 4: return min(a, b);
            case 5: return max(a, b);
            case 6: return sqrt(a);
            case 7: return round(a, RoundTo(below(4)));
            case 8: return a & b;
            case 9: return and_not(a, b);
            case 10: return a ^ b;
            default: return abs(a) * b;
            }
        }
        I32 int_operation(I32 a, I32 b) {
            switch (below(13)) {
            case 0: return a + b;
            case 1: return a - b;
            case 2: return a * b;
            case 3: return min(a, b);
            case 4: return unsigned_max(a, b);
            case 5: return a << int(below(32));
            case 6: return a >> int(below(32));
            case 7: return shift_right_signed(a, int(below(32)));
            case 8: return a & b;
            case 9: return a | b;
            case 10: return and_not(a, b);
            case 11: return unsigned_min(b, a);
            default: return max(a, b) ^ a;
            }
        }
        I64 long_operation(I64 a, I64 b) {
            switch (below(8)) {
            case 0: return a + b;
            case 1: return a - b;
            case 2: return multiply_words(a, b);
            case 3: return a << int(below(64));
            case 4: return a >> int(below(64));
            case 5: return shift_left_each(a, b & i64(63));
            case 6: return shift_right_each(a, b);
            default: return (a | b) ^ a;
            }
        }

        /// Gathers need a block.
        void gather_something() {
            if (self.blocks_ == 0) return;
            InBlock block(int(below(std::uint64_t(self.blocks_))));
            const Lane lane = below(2) ? Lane::f32 : below(2) ? Lane::f64 : Lane::i32;
            const auto take = [&]<Type T, int fields>(auto& pool, Value<T>, std::integral_constant<int, fields>) {
                RawTable data{lane, fields, {}};
                for (int k = 0; k < 8 * fields; ++k) data.patterns.push_back(draw_pattern(lane, random));
                const int t = table(std::move(data), "random");
                const std::int64_t bias = below(2) ? 0 : -std::int64_t(below(100)) * 8;
                const I32 entry = value_i() & i32(7);
                I32 offset = I32(bias);
                for (int bytes = fields * lane_size(lane), k = 0; bytes >> k; ++k)
                    if (bytes >> k & 1) offset = offset + (entry << k);
                const auto values = gather_fields<T, fields>(t, offset, bias);
                pool.insert(pool.end(), values.begin(), values.end());
            };
            const auto take_fields = [&](auto& pool, auto value) {
                switch (below(5)) {
                case 0: take(pool, value, std::integral_constant<int, 1>()); break;
                case 1: take(pool, value, std::integral_constant<int, 2>()); break;
                case 2: take(pool, value, std::integral_constant<int, 3>()); break;
                case 3: take(pool, value, std::integral_constant<int, 4>()); break;
                default: take(pool, value, std::integral_constant<int, 7>());
                }
            };
            if (lane == Lane::f32) take_fields(pools.f, F32());
            else if (lane == Lane::f64) take_fields(pools.d, F64());
            else take_fields(pools.i, I32());
        }

        void step(int depth) {
            switch (below(self.wide_ ? 22 : 20)) {
            case 0: case 1: case 2: case 3: {
                if (self.wide_) pools.d.push_back(float_operation(d(), d()));
                else pools.f.push_back(float_operation(f(), f()));
                break;
            }
            case 4:
                if (below(3)) pools.f.push_back(float_operation(f(), f()));
                else pools.f.push_back(by_part_size(pick_float() + f(), as_float(value_i() + i())));
                break;
            case 5: pools.d.push_back(float_operation(d(), d())); break;
            case 6: case 7: pools.i.push_back(int_operation(value_i(), i())); break;
            case 8: pools.l.push_back(long_operation(value_l(), l())); break;
            case 9: pools.f.push_back(select(m(), f(), f())); break;
            case 10: pools.i.push_back(select(m(), i(), i())); break;
            case 11: pools.m.push_back(below(2) ? m() & m() : m() | m()); break;
            case 12: pools.d.push_back(select(n(), d(), d())); break;
            case 13: pools.i.push_back(bits(pick_float())); break;
            case 14: pools.f.push_back(as_float(value_i())); break;
            case 15: pools.d.push_back(below(2) ? to_f64(value_i()) : to_f64(pick_float())); break;
            case 16: pools.i.push_back(below(2) ? to_i32(pick_double()) : truncate_to_i32(pick_float())); break;
            case 17: gather_something(); break;
            case 18: section(depth); break;
            case 19: pools.f.push_back(below(2) ? reciprocal_approximation(pick_float())
                                                : lookup4(quad_f32({0x3f800000, 0x40000000, 0xc0400000, 0x40800000}), value_i())); break;
            case 20: pools.i.push_back(below(2) ? high_word(pick_double()) : low_word(value_l())); break;
            default: pools.d.push_back(as_float(below(2) ? join_words(value_i(), i32(7)) : sign_extend(value_i()))); break;
            }
        }

        void section(int depth) {
            if (depth >= 2) return;
            const Pools outer = pools;
            const bool single = below(2);
            const auto body = [&](auto before, auto pick_value) {
                for (std::uint64_t k = below(below(4) == 0 ? 40 : 8); k > 0; --k) step(depth + 1);
                if (self.rare_ && below(2)) {
                    if (single) rare_if(compare32());
                    else rare_if(compare64());
                }
                (void)before;
                return pick_value();
            };
            // A rare test inside needs masks of the section's own size all the way out, so nested ones stay plain.
            if (self.rare_ && depth > 0) return;
            if (single) {
                const M32 mask = compare32();
                const Pools at_entry = pools;
                const F32 before = pick_float();
                const F32 after = if_any(mask, before, [&] { return body(before, [&] { return pick_float() * 1.5f; }); });
                pools = at_entry;
                pools.f.push_back(after);
            } else {
                const M64 mask = compare64();
                const Pools at_entry = pools;
                const F64 before = pick_double();
                const F64 after = if_any(mask, before, [&] { return body(before, [&] { return pick_double() - 0.5; }); });
                pools = at_entry;
                pools.d.push_back(after);
            }
        }

        std::vector<int> run() {
            const int steps = 3 + int(below(below(4) == 0 ? 60 : 20));
            for (int k = 0; k < steps; ++k) step(0);
            if (self.rare_) {
                if (self.wide_ && below(2)) rare_if(compare64());
                else rare_if(below(2) ? compare32() : value_i() > i());
                if (below(4) == 0) rare_unless_nearest();  // no lane more, as tests run
            }
            std::vector<Lane> outputs = self.results_;
            if (self.out_) outputs.push_back(*self.out_);
            std::vector<int> nodes;
            for (Lane lane : outputs) {
                switch (lane) {
                case Lane::f32: nodes.push_back((pick_float() + f()).node); break;
                case Lane::f64: nodes.push_back((pick_double() + d()).node); break;
                case Lane::i32: nodes.push_back((value_i() + i()).node); break;
                default: nodes.push_back((value_l() + l()).node); break;
                }
            }
            return nodes;
        }
    };
};

TEST(RandomPrograms, GeneratedCodeEqualsTheInterpreter) {
    const char* seed_text = std::getenv("TUVO_SEED");
    const char* count_text = std::getenv("TUVO_PROGRAMS");
    const std::uint64_t first = seed_text ? std::strtoull(seed_text, nullptr, 0) : 1;
    const int count = count_text ? std::atoi(count_text) : 3000;
    constexpr int batch = 100;
    for (int done = 0; done < count; done += batch) {
        std::vector<MadeUp> programs;
        std::vector<const MadeUp*> pointers;
        const int size = std::min(batch, count - done);
        programs.reserve(std::size_t(size));
        for (int k = 0; k < size; ++k) {
            const std::uint64_t seed = first + std::uint64_t(done + k);
            SCOPED_TRACE("TUVO_SEED=" + std::to_string(seed));
            programs.push_back(RandomDescription(seed).make("random" + std::to_string(seed)));
            pointers.push_back(&programs.back());
        }
        const MadeUpLibrary library(pointers);
        if (std::getenv("TUVO_SHOW")) std::cout << library.text();
        std::mt19937_64 random(first);
        for (int k = 0; k < size; ++k)
            for (const std::string& fault : compare_with_interpreter(programs[std::size_t(k)], library, 12, random))
                ADD_FAILURE() << fault << "\nrepeat with TUVO_SEED=" << first + std::uint64_t(done + k) << " TUVO_PROGRAMS=1";
        if (HasFailure()) break;
    }
}

}  // namespace
}  // namespace tuvo
