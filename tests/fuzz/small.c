static int word = 1;
int *const address = &word;
int f(int x) { return x + *address; }
