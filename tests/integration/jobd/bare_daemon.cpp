// A program in the job daemon's place that is none: it says nothing and ends.
int main() {
  return 0;
}
