// Lists and sets of texts and numbers: joining, splitting, comparing.
#pragma once

#include <set>
#include <string>
#include <vector>

#pragma GCC visibility push(default)

/// `acc`, then the elements with `sep` between them; an empty container gives an empty text, without
/// `acc`.
std::string vector_into_string(std::vector<std::string> elements, std::string acc, std::string sep);
std::string set_into_string(std::set<std::string> elements, std::string acc, std::string sep);

/// Splits at the character, drops empty pieces and adds the others to what the container holds.
void split_into_vector(const std::string& text, char separator, std::vector<std::string>& pieces);
void split_into_set(const std::string& text, char separator, std::set<std::string>& pieces);

/// As above for numbers; stops at the first piece that is none and keeps what it has.
void split_into_set(const std::string& text, char separator, std::set<int>& numbers);

/// What is in one list only; sorts both inputs in place and replaces the outputs, which stay as they are
/// if both inputs are empty. Always 0.
int vector_diff(std::vector<std::string>& a, std::vector<std::string>& b, std::vector<std::string>& only_in_b,
                std::vector<std::string>& only_in_a);
int vector_diff(std::vector<int>& a, std::vector<int>& b, std::vector<int>& only_in_b,
                std::vector<int>& only_in_a);

/// Sorted.
std::vector<std::string> vector_union(std::vector<std::string> a, std::vector<std::string> b);
std::vector<int> vector_union(std::vector<int> a, std::vector<int> b);
std::vector<std::string> vector_intersection(std::vector<std::string> a, std::vector<std::string> b);
std::vector<int> vector_intersection(std::vector<int> a, std::vector<int> b);

#pragma GCC visibility pop
