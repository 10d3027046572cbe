// Replays saved inputs through a fuzz target without libFuzzer, so every build runs the corpus (and any
// crash input kept there) as a plain test. Arguments: files or directories of inputs.
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

bool replay(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    std::size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        std::filesystem::path root(argv[i]);
        std::vector<std::filesystem::path> inputs;
        if (std::filesystem::is_directory(root)) {
            for (const auto& entry : std::filesystem::recursive_directory_iterator(root))
                if (entry.is_regular_file()) inputs.push_back(entry.path());
        } else {
            inputs.push_back(root);
        }
        for (const auto& input : inputs) {
            if (!replay(input)) {
                std::cerr << "cannot read " << input << std::endl;
                return 1;
            }
            ++count;
        }
    }
    std::cout << "replayed " << count << " inputs" << std::endl;
    return count > 0 ? 0 : 1;  // an empty corpus means the test lost its inputs
}
