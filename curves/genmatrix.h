#pragma once
// GenMatrix<T>: a small dense matrix of trivially copyable values in one tracked block,
// row after row. Entries are reached 0-based through operator()(r, c) or 1-based through
// At1(r, c); an index outside the matrix is a contract violation.
#include "../platform/utils.h"
#include <cstdint>
#include <cstring>
#include <type_traits>

template <class T> class GenMatrix {
    static_assert(std::is_trivially_copyable_v<T>, "entries are moved bytewise");

public:
    // Largest number of entries Resize accepts (a guard against corrupt sizes).
    static constexpr int64_t max_entries = int64_t(1) << 26;

    // 0 x 0, no storage.
    GenMatrix() = default;

    // rows x cols of zeros; 0 x 0 when the storage cannot be allocated. Negative sizes
    // are a contract violation.
    GenMatrix(int rows, int cols) { Resize(rows, cols); }

    // Deep copy; a copy whose storage cannot be allocated is a contract violation.
    GenMatrix(const GenMatrix& other)
    {
        KESTRA_REQUIRE(Resize(other.rows_, other.cols_));
        if (Size() != 0) std::memcpy(data_, other.data_, Size() * sizeof(T));
    }

    // Takes other's storage; other is left 0 x 0.
    GenMatrix(GenMatrix&& other) noexcept
        : data_(other.data_), rows_(other.rows_), cols_(other.cols_)
    {
        other.data_ = nullptr;
        other.rows_ = other.cols_ = 0;
    }

    // Same contract as the copy constructor.
    GenMatrix& operator=(const GenMatrix& other)
    {
        if (this == &other) return *this;
        GenMatrix copy(other);
        return *this = static_cast<GenMatrix&&>(copy);
    }

    GenMatrix& operator=(GenMatrix&& other) noexcept
    {
        if (this == &other) return *this;
        v_memptr_free(data_);
        data_ = other.data_;
        rows_ = other.rows_;
        cols_ = other.cols_;
        other.data_ = nullptr;
        other.rows_ = other.cols_ = 0;
        return *this;
    }

    ~GenMatrix() { v_memptr_free(data_); }

    // Makes the matrix rows x cols, every entry zero. True on success; false when
    // rows * cols exceeds max_entries or the storage cannot be allocated, the matrix then
    // being 0 x 0. Negative sizes are a contract violation.
    bool Resize(int rows, int cols)
    {
        KESTRA_REQUIRE(rows >= 0 && cols >= 0);
        const int64_t n = int64_t(rows) * int64_t(cols);
        v_memptr_free(data_);
        data_ = nullptr;
        rows_ = cols_ = 0;
        if (n > max_entries) return false;
        if (n == 0) {
            rows_ = rows;
            cols_ = cols;
            return true;
        }
        void* p = v_memptr_alloc(nullptr, size_t(n) * sizeof(T));
        if (!p) return false;
        std::memset(p, 0, size_t(n) * sizeof(T));
        data_ = static_cast<T*>(p);
        rows_ = rows;
        cols_ = cols;
        return true;
    }

    int Rows() const { return rows_; }
    int Cols() const { return cols_; }
    // Number of entries, rows * cols.
    size_t Size() const { return size_t(rows_) * size_t(cols_); }
    // The entries row after row; null for an empty matrix.
    T* Data() { return data_; }
    const T* Data() const { return data_; }

    // Entry (r, c), 0-based; outside 0..rows-1, 0..cols-1 asserts.
    T& operator()(int r, int c)
    {
        KESTRA_REQUIRE(r >= 0 && r < rows_ && c >= 0 && c < cols_);
        return data_[size_t(r) * size_t(cols_) + size_t(c)];
    }
    const T& operator()(int r, int c) const
    {
        KESTRA_REQUIRE(r >= 0 && r < rows_ && c >= 0 && c < cols_);
        return data_[size_t(r) * size_t(cols_) + size_t(c)];
    }

    // Entry (r, c), 1-based; outside 1..rows, 1..cols asserts.
    T& At1(int r, int c) { return (*this)(r - 1, c - 1); }
    const T& At1(int r, int c) const { return (*this)(r - 1, c - 1); }

private:
    T* data_ = nullptr;
    int rows_ = 0;
    int cols_ = 0;
};
