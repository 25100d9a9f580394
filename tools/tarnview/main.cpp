#include "commands/CommandLine.h"

int main(int argumentCount, char** arguments) {
    return tarnview::Run(argumentCount, arguments);
}
