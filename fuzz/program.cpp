// main() is libFuzzer's; what it calls is in the library passbook_fuzz_targets.
