// What a fuzz target is: whether the code behaves on an input of any bytes. Where it does not, target.cpp
// ends the program for the fuzzer to keep the input.
#pragma once

#include <cstdlib>
#include <string>

bool holds(const std::string& input);
