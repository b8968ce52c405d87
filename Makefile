# make run    install what is missing, build the program (Release) and start it
# make test   install what is missing, build with AddressSanitizer and
#             UndefinedBehaviorSanitizer and run every test under a virtual display
# make bench  build (Release) and run the benchmarks

JOBS ?= $(shell nproc)
RELEASE_DIR := build/release
TEST_DIR := build/test
BENCH_DIR := build/bench

.PHONY: all deps build run test bench clean

all: build

deps:
	bash scripts/install-deps.sh

build: deps
	cmake -S . -B $(RELEASE_DIR) -DCMAKE_BUILD_TYPE=Release -DZENTO_BUILD_TESTS=OFF
	cmake --build $(RELEASE_DIR) -j $(JOBS)

run: build
	./$(RELEASE_DIR)/ZentoRagdollBuilder

test: deps
	cmake -S . -B $(TEST_DIR) -DCMAKE_BUILD_TYPE=Debug -DZENTO_SANITIZE=ON -DZENTO_BUILD_FUZZ=ON
	cmake --build $(TEST_DIR) -j $(JOBS)
	cd $(TEST_DIR) && xvfb-run -a -s "-screen 0 1600x1200x24" ctest --output-on-failure -j $(JOBS)

bench: deps
	cmake -S . -B $(BENCH_DIR) -DCMAKE_BUILD_TYPE=Release -DZENTO_BUILD_TESTS=OFF -DZENTO_BUILD_BENCH=ON
	cmake --build $(BENCH_DIR) -j $(JOBS)
	cd $(BENCH_DIR) && ./bench/archive_bench && ./bench/loader_bench && ./bench/scene_bench \
		&& ./bench/physics_bench && ./bench/rig_bench && xvfb-run -a -s "-screen 0 1600x1200x24" ./bench/render_bench \
		&& xvfb-run -a -s "-screen 0 1600x1200x24" ./bench/playback_bench \
		&& xvfb-run -a -s "-screen 0 1600x1200x24" ./bench/editor_bench \
		&& xvfb-run -a -s "-screen 0 1600x1200x24" ./bench/manipulator_bench

clean:
	rm -rf build
