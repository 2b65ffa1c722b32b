// Values for check_gdb.py to look at: behind "gdb:" stands what `print` is to show.
#include <stdkro/base_var.h>
#include <stdkro/cycque.h>
#include <stdkro/hmap.h>
#include <stdkro/share_str.h>

#include <cstdio>

__attribute__((noinline)) static void stop_here() { std::puts("here"); }

int main()
{
    const char bytes[] = "a\0b";
    share_str text("Wine & cheese"); // gdb: "Wine & cheese"
    share_str empty; // gdb: ""
    share_str with_nul(bytes, bytes + 3); // gdb: "a\000b"

    base_var nothing; // gdb: none
    base_var number(-7); // gdb: -7
    base_var large(0x7FFFFFFF); // gdb: 2147483647
    base_var real(2.5); // gdb: 2.5
    base_var word("tea"); // gdb: "tea"
    base_var wrong = base_var(1) / base_var(0); // gdb: error 0x80000002
    base_var fixed(3); // gdb: const 3
    fixed.set_const(true);
    base_var link = base_var::reference_to(word); // gdb: reference to "tea"

    cycque<int> nobody; // gdb: cycque of 0
    cycque<int> ring; // gdb: cycque of 3 = {8, 9, 10}
    for (int i = 0; i < 11; ++i) {
        ring.push_back(i);
        if (i >= 3)
            ring.pop_front(); // so that it goes around its end
    }
    cycque<base_var> values; // gdb: cycque of 2 = {1, "two"}
    values.push_back(1);
    values.push_back("two");

    hmap<share_str, int> none; // gdb: hmap of 0
    hmap<share_str, int> ages; // gdb: hmap of 2 = {["Ann"] = 31, ["Bob"] = 29}
    ages.set("Ann", 31);
    ages.set("Bob", 29);
    hmap<int, base_var> table; // gdb: hmap of 1 = {[5] = "five"}
    table.set(5, "five");

    stop_here();
    return !wrong.is_valid() && link.is_ref() ? 0 : 1;
}
