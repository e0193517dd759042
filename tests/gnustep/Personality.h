asm(".set __gnu_objc_personality_v0, __gxx_personality_v0");
