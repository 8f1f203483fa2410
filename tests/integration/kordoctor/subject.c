/* Only what it is linked with matters. */
int main(void) {
    return 0;
}
