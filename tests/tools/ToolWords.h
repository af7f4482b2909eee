// The argument vector the shell-like tools take, built from words.
#pragma once

#include <string>
#include <vector>

namespace toolwords {

// Owns the words and a null-ended vector of pointers into them.
class Argv {
public:
    explicit Argv(std::vector<std::string> words) : words_(std::move(words)) {
        for (std::string& w : words_) pointers_.push_back(&w[0]);
        pointers_.push_back(nullptr);
    }
    int count() const { return static_cast<int>(words_.size()); }
    char** data() { return pointers_.data(); }

private:
    std::vector<std::string> words_;
    std::vector<char*> pointers_;
};

// The words with the tool's name in front.
inline Argv command(const char* tool, std::vector<std::string> words) {
    words.insert(words.begin(), tool);
    return Argv(std::move(words));
}

}  // namespace toolwords
