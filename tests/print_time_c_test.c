/* print_time.h from C: each failed check names its line, and the result is their number. */

#include <vndlp/print_time.h>

#include <stdio.h>

static int failures = 0;

static void expectNear(double actual, double expected, int line) {
    const double difference = actual - expected;
    if (difference > -1e-6 && difference < 1e-6) return;
    fprintf(stderr, "line %d: %.9f, expected %.9f\n", line, actual, expected);
    ++failures;
}

int main(void) {
    float settings[VNDLP_TIME_SETTING_COUNT];
    settings[VNDLP_TIME_MOTOR_SPEED] = 3.0F;
    settings[VNDLP_TIME_FIRST_LAYER_EXPOSURE] = 30.0F;
    settings[VNDLP_TIME_EXPOSURE] = 2.5F;
    settings[VNDLP_TIME_LIGHT_OFF_DELAY] = 4.0F;
    settings[VNDLP_TIME_LIFT_HEIGHT] = 8.0F;
    settings[VNDLP_TIME_FIRST_LAYER_NUM] = 2.0F;

    expectNear(calMoveTime(8.0F, 3.0F), 2.7266666667, __LINE__);
    expectNear(calMoveTime(0.125F, 3.0F), 0.1, __LINE__);
    expectNear(calPrintTime(settings, 3), 93.86, __LINE__);
    expectNear(calPrintTime(NULL, 3), 0.0, __LINE__);
    return failures;
}
