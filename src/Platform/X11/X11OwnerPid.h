#pragma once
#include <xcb/res.h>

#include <type_traits>

namespace tsl::X11 {

// The argument type of X-Resource's client-id request, taken from the
// request itself.
template <class>
struct ClientIdArgument;
template <class R, class C, class N, class A>
struct ClientIdArgument<R (*)(C, N, A)> {
    using type = std::remove_cv_t<std::remove_pointer_t<A>>;
};

// Asks which process owns the client that made window `w`; the answer
// holds the pid alone, as no other kind of id is asked for.
inline xcb_res_query_client_ids_cookie_t askOwnerPid(xcb_connection_t* c, xcb_window_t w) {
    typename ClientIdArgument<decltype(&xcb_res_query_client_ids)>::type which{w,
                                                                               XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID};
    return xcb_res_query_client_ids(c, 1, &which);
}

}  // namespace tsl::X11
