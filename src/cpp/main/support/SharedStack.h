#pragma once

#include <initializer_list>
#include <memory>
#include <utility>

namespace tarn {

/// A stack whose copies share what they have in common: copying and lengthening one cost the same
/// however high it is, and no other copy notices either. One thread at a time, as the shared part
/// is counted.
template <class Value>
class SharedStack {
    struct Link {
        const Value value;
        std::shared_ptr<Link> below;
    };

public:
    /// From the top to the bottom.
    class Iterator {
    public:
        explicit Iterator(const Link* link) noexcept : m_link(link) {}

        const Value& operator*() const noexcept { return m_link->value; }

        Iterator& operator++() noexcept {
            m_link = m_link->below.get();
            return *this;
        }

        friend bool operator==(const Iterator&, const Iterator&) noexcept = default;

    private:
        const Link* m_link;
    };

    SharedStack() noexcept = default;

    /// The last value is on top.
    SharedStack(std::initializer_list<Value> values) {
        for (const Value& value : values) {
            Push(value);
        }
    }

    SharedStack(const SharedStack&) noexcept = default;
    SharedStack(SharedStack&&) noexcept = default;

    SharedStack& operator=(const SharedStack& other) noexcept {
        SharedStack copy(other);
        std::swap(m_top, copy.m_top);
        return *this;
    }

    SharedStack& operator=(SharedStack&& other) noexcept {
        SharedStack taken(std::move(other));
        std::swap(m_top, taken.m_top);
        return *this;
    }

    // Link by link: a stack may be higher than the thread's is deep.
    ~SharedStack() {
        while (m_top != nullptr && m_top.use_count() == 1) {
            m_top = std::exchange(m_top->below, nullptr);
        }
    }

    void Push(Value value) { m_top = std::make_shared<Link>(Link{std::move(value), m_top}); }

    /// Nothing for an empty stack.
    void Pop() noexcept {
        if (m_top != nullptr) {
            m_top = std::shared_ptr<Link>(m_top->below);
        }
    }

    bool IsEmpty() const noexcept { return m_top == nullptr; }

    // NOLINTBEGIN(readability-identifier-naming): named by the language

    Iterator begin() const noexcept { return Iterator(m_top.get()); }

    Iterator end() const noexcept { return Iterator(nullptr); }

    // NOLINTEND(readability-identifier-naming)

private:
    std::shared_ptr<Link> m_top;
};

}  // namespace tarn
