// What becomes of an exception on the target layer.
#include "interfaces/common/target.h"

#include <json/value.h>

#include <exception>
#include <new>

namespace nm {

int code_of_current_exception() {
    try {
        throw;
    } catch (int code) {
        return code;
    } catch (const Json::Exception& error) {
        NM_LOG(Error) << "A value is not valid format: " << error.what();
        return NM_ERR_BAD_FORMAT;
    } catch (const std::bad_alloc&) {
        NM_LOG(Error) << "Cannot allocate memory";
        return NM_ERR_NOMEM;
    } catch (const std::exception& error) {
        NM_LOG(Error) << error.what();
        return NM_ERR_SERVICE;
    } catch (...) {
        NM_LOG(Error) << "Unknown exception";
        return NM_ERR_SERVICE;
    }
}

}  // namespace nm
