#pragma once

#include <memory>
#include <string>

/// Texts that live as long as the process. A shared pointer to one owns nothing, so that it is
/// copied and dropped without counting; that is also how it is told from other texts.
namespace host {

/// A pointer to a text that must live as long as the process.
template <class Unit>
std::shared_ptr<const std::basic_string<Unit>> ReferToStatic(
    const std::basic_string<Unit>* text) noexcept {
    using Shared = std::shared_ptr<const std::basic_string<Unit>>;
    return Shared(Shared(), text);
}

/// Whether nothing has to be counted or copied to keep the text: it is static, or there is none.
template <class Unit>
bool IsStaticOrNull(const std::shared_ptr<const std::basic_string<Unit>>& text) noexcept {
    return text.use_count() == 0;
}

template <class Unit>
bool IsStatic(const std::shared_ptr<const std::basic_string<Unit>>& text) noexcept {
    return IsStaticOrNull(text) && text != nullptr;
}

/// Whether the text is this one, as a static text.
template <class Unit>
bool IsStatic(const std::shared_ptr<const std::basic_string<Unit>>& text,
              const std::basic_string<Unit>* known) noexcept {
    return text.get() == known && IsStaticOrNull(text);
}

}  // namespace host
