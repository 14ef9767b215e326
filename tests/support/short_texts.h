// Texts made of the characters that have a meaning in a configuration file.
#ifndef TAVO_TESTS_SUPPORT_SHORT_TEXTS_H
#define TAVO_TESTS_SUPPORT_SHORT_TEXTS_H

#include <cstddef>
#include <string>
#include <vector>

namespace tavo::test {

// Every text of up to `longest` quotes, letters, spaces and signs, the empty one first.
inline std::vector<std::string> ShortTexts(std::size_t longest) {
    std::vector<std::string> texts = {""};
    for (std::size_t i = 0; texts[i].size() < longest; ++i) {
        const std::string text = texts[i];
        for (const char c : {'"', 'x', ' ', '=', '#'}) {
            texts.push_back(text + c);
        }
    }
    return texts;
}

}  // namespace tavo::test

#endif
