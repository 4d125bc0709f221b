__attribute__((visibility("default"))) int oddAbsent();

int oddAbsent()
{
    return 1;
}
