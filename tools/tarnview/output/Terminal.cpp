#include "output/Terminal.h"

#include <cstdlib>
#include <sys/ioctl.h>
#include <unistd.h>

namespace tarnview {

namespace {

std::string_view Variable(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? std::string_view() : value;
}

std::size_t WidthOfTerminal() {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0) {
        return size.ws_col;
    }
    return 80;
}

const char* Sequence(Colour colour) {
    switch (colour) {
        case Colour::Red:
            return "\x1B[31m";
        case Colour::Green:
            return "\x1B[32m";
        case Colour::Yellow:
            return "\x1B[33m";
        case Colour::Cyan:
            return "\x1B[36m";
        case Colour::Faint:
            return "\x1B[2m";
        case Colour::Bold:
            return "\x1B[1m";
    }
    return "";
}

}  // namespace

std::string Terminal::Paint(std::string_view text, Colour colour) const {
    if (!hasColour) {
        return std::string(text);
    }
    return std::string(Sequence(colour)).append(text).append("\x1B[0m");
}

Terminal FindTerminal(ColourChoice choice, bool wantsProgress, bool goesToFile) {
    Terminal terminal;
    terminal.isInteractive = !goesToFile && isatty(STDOUT_FILENO) != 0;
    terminal.hasProgress = wantsProgress && isatty(STDERR_FILENO) != 0;
    terminal.width = terminal.isInteractive ? WidthOfTerminal() : 0;
    const bool mayHaveColour =
        terminal.isInteractive && Variable("NO_COLOR").empty() && Variable("TERM") != "dumb";
    terminal.hasColour =
        choice == ColourChoice::Always || (choice == ColourChoice::Automatic && mayHaveColour);
    return terminal;
}

}  // namespace tarnview
