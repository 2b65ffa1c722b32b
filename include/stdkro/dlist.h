// The doubly linked list.
#ifndef STDKRO_DLIST_H
#define STDKRO_DLIST_H

#include <stdkro/cycque.h>

/// A doubly linked list of values. The address of an item never changes while it
/// is in the list, and adding or removing others leaves iterators to it valid.
template <class T>
class dlist {
    struct link {
        link* prev;
        link* next;
    };
    struct node : link {
        explicit node(const T& v) : link(), value(v) {}
        explicit node(T&& v) : link(), value(std::move(v)) {}
        T value;
    };

    template <class VALUE>
    class basic_iterator {
    public:
        basic_iterator() = default;
        VALUE& operator*() const { return static_cast<node*>(at_)->value; }
        VALUE* operator->() const { return &static_cast<node*>(at_)->value; }
        basic_iterator& operator++()
        {
            at_ = at_->next;
            return *this;
        }
        basic_iterator& operator--()
        {
            at_ = at_->prev;
            return *this;
        }
        bool operator==(const basic_iterator& other) const { return at_ == other.at_; }
        bool operator!=(const basic_iterator& other) const { return at_ != other.at_; }

    private:
        friend class dlist;
        explicit basic_iterator(link* at) : at_(at) {}
        link* at_ = nullptr;
    };

public:
    using iterator = basic_iterator<T>;
    using const_iterator = basic_iterator<const T>;

    dlist() = default;
    dlist(const dlist& other)
    {
        try {
            for (const T& item : other)
                push_back(item);
        } catch (...) {
            clear();
            throw;
        }
    }
    dlist(dlist&& other) noexcept { swap(other); }
    ~dlist() { clear(); }

    dlist& operator=(const dlist& other)
    {
        if (this != &other) {
            dlist copy(other);
            swap(copy);
        }
        return *this;
    }
    dlist& operator=(dlist&& other) noexcept
    {
        swap(other);
        return *this;
    }

    void push_back(const T& item) { insert(end(), item); }
    void push_back(T&& item) { insert(end(), std::move(item)); }
    void push_front(const T& item) { insert(begin(), item); }
    void push_front(T&& item) { insert(begin(), std::move(item)); }

    /// Puts an item before `place` and returns where it stands.
    iterator insert(iterator place, const T& item) { return join(place.at_, make(item)); }
    iterator insert(iterator place, T&& item) { return join(place.at_, make(std::move(item))); }

    /// Removes the item at `place`, which must not be the end; returns its successor.
    iterator remove(iterator place)
    {
        link* const gone = place.at_;
        link* const next = gone->next;
        gone->prev->next = next;
        next->prev = gone->prev;
        --count_;
        static_cast<node*>(gone)->~node();
        container_memory::give(gone);
        return iterator(next);
    }

    /// Removes the first or the last item; false when there is none.
    bool pop_front()
    {
        if (count_ == 0)
            return false;
        remove(begin());
        return true;
    }
    bool pop_back()
    {
        if (count_ == 0)
            return false;
        remove(iterator(ends_.prev));
        return true;
    }

    /// The first and the last item. The list must not be empty.
    T& front() { return static_cast<node*>(ends_.next)->value; }
    const T& front() const { return static_cast<const node*>(ends_.next)->value; }
    T& back() { return static_cast<node*>(ends_.prev)->value; }
    const T& back() const { return static_cast<const node*>(ends_.prev)->value; }

    unsigned count() const { return count_; }
    bool isempty() const { return count_ == 0; }
    void clear()
    {
        while (pop_front()) { }
    }

    iterator begin() { return iterator(ends_.next); }
    iterator end() { return iterator(&ends_); }
    // The iterators of a constant list give constant items only.
    const_iterator begin() const { return const_iterator(ends_.next); }
    const_iterator end() const { return const_iterator(const_cast<link*>(&ends_)); }

    void swap(dlist& other) noexcept
    {
        std::swap(ends_, other.ends_);
        std::swap(count_, other.count_);
        adopt(other);
        other.adopt(*this);
    }

private:
    template <class U>
    node* make(U&& item)
    {
        void* const room = container_memory::take(sizeof(node));
        try {
            return new (room) node(std::forward<U>(item));
        } catch (...) {
            container_memory::give(room);
            throw;
        }
    }

    iterator join(link* place, node* item)
    {
        item->prev = place->prev;
        item->next = place;
        place->prev->next = item;
        place->prev = item;
        ++count_;
        return iterator(item);
    }

    // After a swap the outer links still point at the other list's ends_.
    void adopt(dlist& former)
    {
        if (ends_.next == &former.ends_) {
            ends_.next = ends_.prev = &ends_;
            return;
        }
        ends_.next->prev = &ends_;
        ends_.prev->next = &ends_;
    }

    // One link that is no item closes the ring: no end is a special case.
    link ends_ = { &ends_, &ends_ };
    unsigned count_ = 0;
};

#endif
