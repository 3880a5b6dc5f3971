// A locale that writes 1,5 for one and a half, made on the spot: machines differ in what they have
// installed. The former locale comes back with the object's end.
#pragma once

#include <gtest/gtest.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/temp_folder.h"

namespace kestralum::testing {

class CommaLocale {
public:
    CommaLocale() {
        std::string characters =
            "<code_set_name> ASCII\n<mb_cur_max> 1\n<escape_char> /\n<comment_char> %\nCHARMAP\n";
        for (int c = 0; c < 128; ++c) {
            char line[32];
            std::snprintf(line, sizeof line, "<U%04X> /x%02x\n", c, c);
            characters += line;
        }
        folder_.write("characters", characters + "END CHARMAP\n");
        folder_.write("numbers",
                      "LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \".\"\ngrouping 3;3\nEND LC_NUMERIC\n");
        // the missing categories make it complain and end with 1; the locale is written all the same
        const std::string command =
            "cd '" + folder_.path().string() +
            "' && localedef -c -f ./characters -i ./numbers ./comma > /dev/null 2>&1 || true";
        EXPECT_EQ(std::system(command.c_str()), 0);
        ::setenv("LOCPATH", folder_.path().c_str(), 1);
        former_ = std::setlocale(LC_NUMERIC, nullptr);
        EXPECT_NE(std::setlocale(LC_NUMERIC, "comma"), nullptr);
    }
    ~CommaLocale() {
        std::setlocale(LC_NUMERIC, former_.c_str());
        ::unsetenv("LOCPATH");
    }
    CommaLocale(const CommaLocale&) = delete;
    CommaLocale& operator=(const CommaLocale&) = delete;

private:
    TempFolder folder_;
    std::string former_;
};

}  // namespace kestralum::testing
