// What is masked in all that is printed.
#include "nm_bin/secrets.h"

#include <networkinterface.h>

namespace nm_bin {

namespace {

secret_words& secrets() {
    static secret_words known;
    return known;
}

}  // namespace

void learn_secrets(const Json::Value& document) {
    secrets().learn(document);
}

std::string mask_text(std::string text) {
    return secrets().mask(std::move(text));
}

}  // namespace nm_bin
