#include "filters/FilterCheck.h"

#include "filters/PacketVocabulary.h"

#include <cstdio>
#include <fstream>
#include <sstream>

int ZorCheckFilterFile(const char* program, const char* path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "%s: cannot read %s\n", program, path);
        return 2;
    }
    std::stringstream text;
    text << in.rdbuf();
    const ExpressionCheckResult result = CZorPacketVocabulary::CheckScript(text.str());
    const std::string report = result.Format();
    std::fputs(report.c_str(), result.m_Ok ? stdout : stderr);
    return result.m_Ok ? 0 : 1;
}
