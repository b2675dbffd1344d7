// Message catalogs for tests, made with gencat(1), and one whose replies are a code and their own number.
#pragma once

#include <unistd.h>

#include <stdexcept>
#include <string>
#include <string_view>

#include "os/catalog.h"
#include "os/os.h"
#include "support/child.h"
#include "support/home.h"

// "220 1403": what is compared is the number. Refusals name the host, which is "%s" here.
inline constexpr std::string_view kReplyTexts =
    "$set 102\n"
    "1401 451 1401 %s\n"
    "1402 451 1402 %s\n"
    "1403 220 1403\n"
    "1404 250 1404\n"
    "1405 503 1405 %s\n"
    "1406 250 1406\n"
    "1407 354 1407\n"
    "1408 500 1408 %s\n"
    "1409 221 1409\n"
    "1424 451 1424 %s\n"
    "1426 502 1426 %s\n"
    "1428 554 1428 %s\n";

// Makes nls/<language>/unix.cat from the source text of a catalog.
inline void write_catalog(const TestHome& home, std::string_view source, const std::string& language = "C") {
    os_mkdirs("~/nls/" + language, 0700);
    home.write("tmp/unix.msg", source);
    const std::string to = home.file("nls/" + language + "/unix.cat");
    const std::string from = home.file("tmp/unix.msg");
    if (run_in_child([&] { return ::execlp("gencat", "gencat", to.c_str(), from.c_str(), nullptr); }) != 0)
        throw std::runtime_error("gencat");
    std::filesystem::remove(home.file("tmp/unix.msg"));
}
