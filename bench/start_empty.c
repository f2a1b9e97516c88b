/* start_empty.c - a program that does nothing: what is left is what its libraries cost. */
int main(void)
{
    return 0;
}
