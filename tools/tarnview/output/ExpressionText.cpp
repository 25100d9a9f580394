#include "output/ExpressionText.h"

#include "output/Units.h"

namespace tarnview {

std::string Describe(const ExpressionError& error, std::string_view text) {
    const std::string before = OnOneLine(text.substr(0, error.Position()));
    return std::string(error.what()) + "\n  " + OnOneLine(text) + "\n  " +
           std::string(TextWidth(before), ' ') + "^";
}

}  // namespace tarnview
