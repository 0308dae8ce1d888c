// Lists and sets of texts and numbers: joining, splitting, comparing.
#include "utils/containers.h"

#include <algorithm>
#include <iterator>

#include "result_codes.h"
#include "utils/strings.h"

namespace {

template <class Container>
std::string join(const Container& elements, std::string acc, const std::string& sep) {
    if (elements.empty()) {
        return {};
    }
    for (const std::string& element : elements) {
        acc += element + sep;
    }
    acc.resize(acc.size() - sep.size());
    return acc;
}

template <class T>
int diff(std::vector<T>& a, std::vector<T>& b, std::vector<T>& only_in_b, std::vector<T>& only_in_a) {
    if (a.empty() && b.empty()) {
        return NM_OK;
    }
    std::sort(a.begin(), a.end());
    std::sort(b.begin(), b.end());
    only_in_b.clear();
    only_in_a.clear();
    std::set_difference(b.begin(), b.end(), a.begin(), a.end(), std::back_inserter(only_in_b));
    std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(only_in_a));
    return NM_OK;
}

template <class T>
std::vector<T> unite(std::vector<T>& a, std::vector<T>& b) {
    std::sort(a.begin(), a.end());
    std::sort(b.begin(), b.end());
    std::vector<T> all;
    std::set_union(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(all));
    return all;
}

template <class T>
std::vector<T> intersect(std::vector<T>& a, std::vector<T>& b) {
    std::sort(a.begin(), a.end());
    std::sort(b.begin(), b.end());
    std::vector<T> common;
    std::set_intersection(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(common));
    return common;
}

}  // namespace

std::string vector_into_string(std::vector<std::string> elements, std::string acc, std::string sep) {
    return join(elements, std::move(acc), sep);
}

std::string set_into_string(std::set<std::string> elements, std::string acc, std::string sep) {
    return join(elements, std::move(acc), sep);
}

void split_into_vector(const std::string& text, char separator, std::vector<std::string>& pieces) {
    for (std::size_t begin = text.find_first_not_of(separator); begin != std::string::npos;) {
        const std::size_t end = std::min(text.find(separator, begin), text.size());
        pieces.push_back(text.substr(begin, end - begin));
        begin = text.find_first_not_of(separator, end);
    }
}

void split_into_set(const std::string& text, char separator, std::set<std::string>& pieces) {
    std::vector<std::string> list;
    split_into_vector(text, separator, list);
    pieces.insert(list.begin(), list.end());
}

void split_into_set(const std::string& text, char separator, std::set<int>& numbers) {
    std::vector<std::string> list;
    split_into_vector(text, separator, list);
    for (const std::string& piece : list) {
        const int number = string_to_int(piece);
        if (number == NM_ERR_NOT_A_NUMBER) {
            return;
        }
        numbers.insert(number);
    }
}

int vector_diff(std::vector<std::string>& a, std::vector<std::string>& b, std::vector<std::string>& only_in_b,
                std::vector<std::string>& only_in_a) {
    return diff(a, b, only_in_b, only_in_a);
}

int vector_diff(std::vector<int>& a, std::vector<int>& b, std::vector<int>& only_in_b,
                std::vector<int>& only_in_a) {
    return diff(a, b, only_in_b, only_in_a);
}

std::vector<std::string> vector_union(std::vector<std::string> a, std::vector<std::string> b) {
    return unite(a, b);
}

std::vector<int> vector_union(std::vector<int> a, std::vector<int> b) {
    return unite(a, b);
}

std::vector<std::string> vector_intersection(std::vector<std::string> a, std::vector<std::string> b) {
    return intersect(a, b);
}

std::vector<int> vector_intersection(std::vector<int> a, std::vector<int> b) {
    return intersect(a, b);
}
