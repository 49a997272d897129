// Which value is in which register: taking one, giving it up, spilling, reading back. Touches `Allocation::registers`
// with what belongs to them, and appends moves, spills and reloads to the code.
#pragma once

#include "frame/generator/allocate/state.hpp"

namespace tuvo {

File file_of(const Allocation& a, int value);
bool rematerializes(const Allocation& a, int value);
/// The position after `after` at which the body uses a value next, or `never`.
int next_use(const Body& body, int value, int after);

void append(Allocation& a, Instruction i, int added_cost = 1);
Operand physical_operand(File file, int reg, int bits);
Operand slot_operand(int slot, int bits);

/// Notes that a value is in a register from now on, or in none.
void place(Allocation& a, int value, int physical);
void leave(Allocation& a, int value);

/// Moves a value from one register to another, which is free.
void move(Allocation& a, int value, int to);
/// Stores a value to a slot of its own, if it isn't in one and can't be read again from elsewhere.
void spill(Allocation& a, const Body& body, int value);

/// When the register that is taken is written: by the instruction at hand, which has read its operands by then, or
/// before it.
enum class Written : std::uint8_t { by_the_instruction, before_it };

/// A free physical register, made free if need be.
int take(Allocation& a, const Body& body, File file, int hint, Written written);

/// The physical register of a value, which is read back if it isn't in one; locked until the instruction is done.
int bring(Allocation& a, const Body& body, int value);
/// An operand with its values in physical registers.
Operand resolved(Allocation& a, const Body& body, Operand o);

/// Gives up the registers of those that the body doesn't use any more.
void release_dead(Allocation& a, const Body& body, const std::vector<int>& values);

}  // namespace tuvo
