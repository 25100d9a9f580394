#pragma once

namespace tarnview {

/// The whole program: reads the command line, runs a command, and returns the exit status. Nothing
/// is thrown. Data go to the standard output stream, all else to the standard error stream.
int Run(int argumentCount, char** arguments);

}  // namespace tarnview
