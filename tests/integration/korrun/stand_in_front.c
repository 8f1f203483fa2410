/* Lies where the front library would. */
extern const int korrun_stand_in_front;
__attribute__((visibility("default"))) const int korrun_stand_in_front = 1;
