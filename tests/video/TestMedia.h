// Where the media source's tests find their inputs (made by make_media.cmake into the build
// tree) and put the files they make.
#pragma once

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace zortest {

inline std::string Media(const std::string& name) {
    return std::string(ZOR_TEST_MEDIA) + "/" + name;
}

inline std::string Scratch(const std::string& name) {
    return std::string(ZOR_TEST_SCRATCH) + "/" + name;
}

inline std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void WriteFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

} // namespace zortest
