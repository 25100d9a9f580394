#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>
#include <string_view>

namespace tarnview {

enum class Colour { Red, Green, Yellow, Cyan, Faint, Bold };

/// How output may look. Decided once, at start.
struct Terminal {
    bool hasColour = false;      ///< of the standard output stream
    bool hasProgress = false;    ///< of the standard error stream
    bool isInteractive = false;  ///< the standard output stream is a terminal
    std::size_t width = 0;       ///< columns; 0: no limit

    /// The text in a colour, if there are colours.
    std::string Paint(std::string_view text, Colour colour) const;
};

/// Whether to use colours: always, never, or if it is a terminal that has them, NO_COLOR is not set
/// and the output does not go to a file.
enum class ColourChoice { Automatic, Always, Never };

Terminal FindTerminal(ColourChoice choice, bool wantsProgress, bool goesToFile);

}  // namespace tarnview
