/* Prints the powers of ten as the C library's pow() has them. Some are not the nearest double, so no table of constants is. */
#include <math.h>
#include <stdio.h>

int main(void)
{
    const int lowest = -345;
    const int highest = 309;
    printf("// Made at build time. Do not edit.\n#pragma once\n\nconstexpr int kLowestPower = %d;\n", lowest);
    printf("constexpr double kPowersOfTen[] = {\n");
    for (volatile int power = lowest; power <= highest; ++power) {
        const double value = pow(10.0, power);
        if (isinf(value))
            printf("    __builtin_inf()};\n");
        else
            printf("    %a,\n", value);
    }
    return 0;
}
