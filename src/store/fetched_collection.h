// FetchedCollection: what LocalDataFetchManager publishes for one kind of
// record. It is a snapshot of a fetched result's identities, in order, over
// the view context; the records themselves load a batch at a time when an
// index in that batch is first reached, so a collection of 100,000 tasks
// costs its identities, not its rows. Copies share one snapshot, and a
// changed result is published as a new snapshot, never by editing this one.
#pragma once

#include "objectstore/batched_results.h"

#include <cstddef>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <vector>

namespace tasket::store {

template <class Record> class FetchedCollection {
  public:
    class const_iterator;

    /// An empty collection.
    FetchedCollection() = default;
    /// The records of `results`, which must all be of Record's entity.
    explicit FetchedCollection(std::shared_ptr<const objectstore::BatchedResults> results)
        : m_results(std::move(results)) {}

    std::size_t size() const { return m_results ? m_results->size() : 0; }
    bool empty() const { return size() == 0; }
    /// The identities in order; nothing is loaded.
    const std::vector<objectstore::ObjectID>& objectIDs() const {
        static const std::vector<objectstore::ObjectID> none;
        return m_results ? m_results->objectIDs() : none;
    }

    /// The context the records are in; null for an empty collection.
    objectstore::ObjectContext* context() const {
        return m_results ? &m_results->context() : nullptr;
    }

    /// The record at `index`, its batch loaded on first access. Throws
    /// std::out_of_range past the end and std::runtime_error when the rows
    /// cannot be read. Use on the main queue.
    std::shared_ptr<Record> at(std::size_t index) const {
        if (index >= size())
            throw std::out_of_range("index past the end of a fetched collection");
        // Every object of Record's entity is made as a Record by the model.
        return std::static_pointer_cast<Record>(m_results->at(index));
    }
    std::shared_ptr<Record> operator[](std::size_t index) const { return at(index); }

    const_iterator begin() const { return const_iterator(this, 0); }
    const_iterator end() const { return const_iterator(this, size()); }

    /// How many batches of rows have been read so far (shared by the copies).
    std::size_t loadedBatches() const { return m_results ? m_results->loadedBatches() : 0; }

    /// Walks the records in order, loading each batch as it is reached.
    class const_iterator {
      public:
        using iterator_concept = std::input_iterator_tag;
        using value_type = std::shared_ptr<Record>;
        using difference_type = std::ptrdiff_t;

        const_iterator() = default;
        value_type operator*() const { return m_collection->at(m_index); }
        const_iterator& operator++() {
            ++m_index;
            return *this;
        }
        void operator++(int) { ++m_index; }
        friend bool operator==(const const_iterator& a, const const_iterator& b) {
            return a.m_index == b.m_index;
        }

      private:
        friend class FetchedCollection;
        const_iterator(const FetchedCollection* collection, std::size_t index)
            : m_collection(collection), m_index(index) {}
        const FetchedCollection* m_collection = nullptr;
        std::size_t m_index = 0;
    };

  private:
    std::shared_ptr<const objectstore::BatchedResults> m_results;
};

} // namespace tasket::store
