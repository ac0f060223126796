// SPDX-License-Identifier: MIT
#pragma once

namespace kel::http {

// libcurl itself, from before the first of its handles is made until the last one has been freed, and a little memory in
// reserve for it. Some of what libcurl finds no memory for it leaves out without a word, such as the query of a URL or the
// cookies of a request, which is another request then. So it gets the reserve first, and no transfer begins before that
// has been made up for.
//
// The reserve is the process's. It serves nobody where the program has initialised libcurl before the engine does.
// The engine's owner, while the engine thread is not running.
class CurlLibrary {
 public:
    // Throws std::bad_alloc: libcurl does not say what else could be missing.
    CurlLibrary();
    ~CurlLibrary() { close(); }
    CurlLibrary(const CurlLibrary&) = delete;
    CurlLibrary& operator=(const CurlLibrary&) = delete;

    // The second call does nothing.
    void close();

    // Sees to it that the reserve is there. Throws std::bad_alloc. Engine thread.
    static void fillReserve();

    // Whether libcurl has found all the memory that it asked for since the reserve was filled. False where that is unknown,
    // as the reserve serves nobody. Engine thread.
    static bool isMemoryAmple();

 private:
    bool isOpen = true;
};

}  // namespace kel::http
