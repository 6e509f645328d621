/* Asks for the print time of a job of three layers, from C. */

#include <vndlp/print_time.h>

int main(void) {
    float settings[VNDLP_TIME_SETTING_COUNT] = {3, 30, 2.5F, 4, 8, 2};
    const double seconds = calPrintTime(settings, 3);
    return seconds > 93.859 && seconds < 93.861 ? 0 : 1;
}
