/* Loads what it is linked with and ends. */
int main(void) {
    return 0;
}
