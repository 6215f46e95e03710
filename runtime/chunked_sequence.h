// ChunkedSequence: a list by position whose reads, inserts and removals at any
// place cost O(sqrt n) at worst, for Collection.
//
// Items sit in blocks of about sqrt(n) each, every item in a cell of its own
// so that an insert or removal shifts pointers within one block only. A
// Fenwick tree over the block sizes finds a position in O(log n). A block
// that grows to twice the target splits; the whole list is re-chunked when
// its size has moved far from the one the target was set for, or when
// removals have left too many small blocks.
//
//   ChunkedSequence<int> s;
//   s.push_back(2);  s.insert(0, 1);  // 1 2
//   s.erase(1);      s[0];            // 1
#pragma once

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace varnek {

template <class T>
class ChunkedSequence {
 public:
  ChunkedSequence() = default;
  ChunkedSequence(const ChunkedSequence& other) { *this = other; }
  ChunkedSequence& operator=(const ChunkedSequence& other) {
    if (this == &other) return *this;
    ChunkedSequence copy;
    copy.size_ = other.size_;
    copy.chunk_ = other.chunk_;
    for (const Block& b : other.blocks_) {
      Block& mine = copy.blocks_.emplace_back();
      mine.reserve(b.size());
      for (const Cell& cell : b) mine.push_back(std::make_unique<T>(*cell));
    }
    copy.Reindex();
    return *this = std::move(copy);
  }
  ChunkedSequence(ChunkedSequence&&) noexcept = default;
  ChunkedSequence& operator=(ChunkedSequence&&) noexcept = default;

  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  // pos in 0..size()-1; not checked.
  const T& operator[](size_t pos) const {
    const Place at = Locate(pos);
    return *blocks_[at.block][at.offset];
  }
  T& operator[](size_t pos) {
    const Place at = Locate(pos);
    return *blocks_[at.block][at.offset];
  }

  void push_back(T item) { insert(size_, std::move(item)); }

  // Puts item before pos (pos == size() appends).
  void insert(size_t pos, T item) {
    Cell cell = std::make_unique<T>(std::move(item));
    if (blocks_.empty()) {
      blocks_.emplace_back();
      Reindex();
    }
    const Place at = pos == size_ ? Place{blocks_.size() - 1, blocks_.back().size()} : Locate(pos);
    Block& b = blocks_[at.block];
    b.insert(b.begin() + static_cast<std::ptrdiff_t>(at.offset), std::move(cell));
    ++size_;
    Adjust(at.block, +1);
    if (size_ > 4 * chunk_ * chunk_) {
      Rechunk();
    } else if (b.size() >= 2 * chunk_) {
      Split(at.block);
    }
  }

  // Removes the item at pos (0..size()-1; not checked).
  void erase(size_t pos) {
    const Place at = Locate(pos);
    Block& b = blocks_[at.block];
    b.erase(b.begin() + static_cast<std::ptrdiff_t>(at.offset));
    --size_;
    Adjust(at.block, -1);
    if (chunk_ > kMinChunk && 4 * size_ < chunk_ * chunk_) {
      Rechunk();
    } else if (blocks_.size() > 2 * (size_ / chunk_ + 1)) {
      Rechunk();  // removals left many small blocks
    } else if (b.empty()) {
      blocks_.erase(blocks_.begin() + static_cast<std::ptrdiff_t>(at.block));
      Reindex();
    }
  }

  // The first position whose item satisfies pred, or size().
  template <class Pred>
  size_t find_if(Pred pred) const {
    size_t pos = 0;
    for (const Block& b : blocks_) {
      for (const Cell& cell : b) {
        if (pred(*cell)) return pos;
        ++pos;
      }
    }
    return size_;
  }

 private:
  using Cell = std::unique_ptr<T>;
  using Block = std::vector<Cell>;
  static constexpr size_t kMinChunk = 32;

  struct Place {
    size_t block, offset;
  };

  // Descends the Fenwick tree: the block holding pos and pos within it.
  Place Locate(size_t pos) const {
    size_t block = 0;  // blocks before the one sought, as a 1-based tree index
    for (size_t step = top_; step > 0; step /= 2) {
      const size_t next = block + step;
      if (next < tree_.size() && tree_[next] <= pos) {
        block = next;
        pos -= tree_[next];
      }
    }
    return {block, pos};
  }

  void Adjust(size_t block, long delta) {
    for (size_t i = block + 1; i < tree_.size(); i += i & (~i + 1))
      tree_[i] += static_cast<size_t>(delta);
  }

  // Rebuilds the Fenwick tree from the block sizes.
  void Reindex() {
    tree_.assign(blocks_.size() + 1, 0);
    for (size_t i = 1; i < tree_.size(); ++i) {
      tree_[i] += blocks_[i - 1].size();
      const size_t parent = i + (i & (~i + 1));
      if (parent < tree_.size()) tree_[parent] += tree_[i];
    }
    top_ = 1;
    while (top_ * 2 < tree_.size()) top_ *= 2;
  }

  void Split(size_t block) {
    Block& b = blocks_[block];
    const auto half = b.begin() + static_cast<std::ptrdiff_t>(b.size() / 2);
    Block upper(std::make_move_iterator(half), std::make_move_iterator(b.end()));
    b.erase(half, b.end());
    blocks_.insert(blocks_.begin() + static_cast<std::ptrdiff_t>(block) + 1, std::move(upper));
    Reindex();
  }

  // Sets the target to about sqrt(size) and refills the blocks to it.
  void Rechunk() {
    chunk_ = kMinChunk;
    while (chunk_ * chunk_ < size_) chunk_ *= 2;
    std::vector<Block> refilled;
    refilled.reserve(size_ / chunk_ + 1);
    for (Block& b : blocks_) {
      for (Cell& cell : b) {
        if (refilled.empty() || refilled.back().size() == chunk_)
          refilled.emplace_back().reserve(chunk_);
        refilled.back().push_back(std::move(cell));
      }
    }
    blocks_ = std::move(refilled);
    Reindex();
  }

  std::vector<Block> blocks_;  // never an empty block, except the first one made
  std::vector<size_t> tree_;   // Fenwick tree of block sizes, 1-based
  size_t top_ = 0;             // highest power of two below tree_.size()
  size_t size_ = 0;
  size_t chunk_ = kMinChunk;
};

}  // namespace varnek
