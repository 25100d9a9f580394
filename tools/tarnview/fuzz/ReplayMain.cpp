// Shows a fuzzer files, and a fixed series of damaged copies of each.

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void Show(const std::string& text) {
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
}

std::string Damaged(std::string text, std::mt19937& random) {
    const auto place = [&] { return random() % (text.size() + 1); };
    for (std::size_t changes = 1 + random() % 4; changes != 0; --changes) {
        const std::size_t at = place();
        switch (random() % 5) {
            case 0:
                text.resize(at);
                break;
            case 1:
                text.erase(at, random() % 64);
                break;
            case 2:
                text.insert(at, 1, static_cast<char>(random()));
                break;
            case 3:
                text.insert(at, text.substr(place(), random() % 512));
                break;
            default:
                if (at < text.size()) {
                    text[at] = static_cast<char>(random());
                }
        }
    }
    return text;
}

}  // namespace

// Usage: replay COUNT FILE...
int main(int argumentCount, char** arguments) {
    if (argumentCount < 3) {
        std::cerr << "usage: replay COUNT FILE...\n";
        return 2;
    }
    const int count = std::atoi(arguments[1]);
    std::mt19937 random(20261121);
    for (int index = 2; index < argumentCount; ++index) {
        std::ifstream file(arguments[index], std::ios::binary);
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        if (text.empty()) {
            std::cerr << arguments[index] << ": empty, or cannot be read\n";
            return 1;
        }
        Show(text);
        for (int copy = 0; copy < count; ++copy) {
            Show(Damaged(text, random));
        }
    }
    return 0;
}
