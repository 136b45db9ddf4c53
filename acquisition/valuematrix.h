// Raw value behind every displayed pixel, kept for the click read-out.
#pragma once

#include <cstddef>
#include <vector>

// One contiguous block indexed [y][x], so a whole frame is one allocation
// and a row is a plain pointer the converters can walk.
template <typename T>
class ValueMatrix {
public:
    ValueMatrix() = default;
    ValueMatrix(int rows, int cols) : rows_(rows), cols_(cols), data_(std::size_t(rows) * std::size_t(cols), T{}) {}

    int rows() const { return rows_; }
    int cols() const { return cols_; }
    T* operator[](int y) { return data_.data() + std::size_t(y) * std::size_t(cols_); }
    const T* operator[](int y) const { return data_.data() + std::size_t(y) * std::size_t(cols_); }
    T* data() { return data_.data(); }
    const T* data() const { return data_.data(); }

private:
    int rows_ = 0;
    int cols_ = 0;
    std::vector<T> data_;
};
