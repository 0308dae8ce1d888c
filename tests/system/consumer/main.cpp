// The least that a caller of the library writes: one request, and its result for people.
#include <networkinterface.h>

#include <iostream>

int main() {
    char request[] = "[]";
    const ResultCode result = describe_result(Setup_wanif(request));
    std::cout << result.code << " " << result.name << "\n";
    return Setup_wanif(nullptr) == NM_ERR_NULL_ARG ? 0 : 1;
}
