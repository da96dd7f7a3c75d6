# Short forms. `make` builds the release preset into build/; the program is build/bin/sds.
MESH ?= assets/knot.obj
OUT ?= build/render.png
ARGS ?=
JOBS ?= $(shell nproc)

SOURCE_DIRS := host sds render model io cli oracles tests bench examples tools bindings web/src web/toolchain
# Recursive on purpose: on a fresh machine ninja is there only once the packages are.
export CMAKE_GENERATOR = $(if $(shell command -v ninja),Ninja,Unix Makefiles)

sources = $(shell find $(SOURCE_DIRS) \( -name '*.h' -o -name '*.cpp' -o -name '*.inl' \) 2>/dev/null)
any_of = $(subst $(subst ,, ),|,$(strip $(1)))
build_preset = cmake --build --preset $(1) -j $(JOBS)

.PHONY: all build render test install package abi accuracy rays bench docs gallery first-page format check check-format \
        check-layering check-names check-length \
        tidy asan tsan scalar fuzz clang arm64 web web-test dependencies cross-dependencies clean
.PHONY: dependencies-program dependencies-tests dependencies-checks dependencies-docs dependencies-all
.DELETE_ON_ERROR:

all: build

dependencies: dependencies-all
$(addprefix dependencies-,program tests checks docs web all): dependencies-%:
	@scripts/install_dependencies.sh $*

cross-dependencies:
	@scripts/install_cross_dependencies.sh

# A configured tree re-configures itself when CMake files or folders change; presets are all it cannot see. The program
# alone needs a third of the packages, so a tree that was made for it gets the other parts when they are asked for.
parts = -DQN_BUILD_TESTS=$(1) -DQN_BUILD_BENCH=$(1) -DQN_BUILD_EXAMPLES=$(1) -DQN_BUILD_PYTHON=$(1)
build/CMakeCache.txt: CMakePresets.json | dependencies-program
	cmake --preset release $(if $(wildcard build/all_parts),,$(call parts,OFF))
	@touch $@

build/all_parts: CMakePresets.json | dependencies-tests
	cmake --preset release $(call parts,ON)
	@touch build/CMakeCache.txt $@

build/%/CMakeCache.txt: CMakePresets.json | dependencies
	cmake --preset $*
	@touch $@

build: build/all_parts
	$(call build_preset,release)

# Through the environment, so that a name may hold blanks and quotes.
render: export MESH := $(MESH)
render: export OUT := $(OUT)
render: build/CMakeCache.txt
	$(call build_preset,release) --target sds
	build/bin/sds render "$$MESH" -o "$$OUT" $(ARGS)

test: check-layering build
	ctest --preset release

# PREFIX=… for another place than /usr/local.
install: build
	cmake --install build $(if $(PREFIX),--prefix "$(PREFIX)")

# A .deb in build/.
package: build
	cpack --config build/CPackConfig.cmake -B build

# Layouts and signatures against another commit, the last tag by default; takes two builds.
abi: dependencies-tests
	scripts/check_abi --against $(BASE)

# The page is replaced only by a complete run.
accuracy: build/all_parts
	$(call build_preset,release) --target accuracy
	build/bin/accuracy $(ARGS) > build/accuracy.md
	@mkdir -p docs && cp build/accuracy.md docs/accuracy.md && cat docs/accuracy.md

# Agreement with double precision, and holes: some twenty million rays. HOLE_RAYS=512000 for a hundred million.
HOLE_RAYS ?= 70000
rays: build/all_parts
	$(call build_preset,release) --target rays
	build/bin/rays --rays 100000 --checks cells,limit --kernels fast > build/agreement.md
	build/bin/rays --rays $(HOLE_RAYS) --checks holes,far --kernels fast,scene > build/holes.md
	build/bin/rays --rays 14000 --checks refined --kernels fast,reference,scene cube toroidal_tet prism5_crease_loop \
		torus_dart car > build/refined_rays.md
	@printf '# Rays\n\nPrinted by `make rays`.\n' > docs/rays.md
	@for part in agreement holes refined_rays; do echo; sed -n '/^## /,$$p' build/$$part.md; done >> docs/rays.md

# ARGS="--full" for all levels and sizes.
bench: build/all_parts
	$(call build_preset,bench)
	@mkdir -p docs
	build/bin/bench_all --markdown docs/performance.md --json build/bench.json $(ARGS)

# Pages in build/docs/html; a warning or a broken link fails. The help texts and the Python reference need both programs.
docs: build/all_parts | dependencies-docs
	$(call build_preset,release) --target sds qn_python
	@mkdir -p build/docs
	doxygen docs/Doxyfile
	/usr/bin/python3 -m sphinx -E -W --keep-going -q -d build/docs/doctrees -b html docs build/docs/html
	/usr/bin/python3 -m sphinx -W -q -d build/docs/doctrees -b linkcheck docs build/docs/linkcheck
	docs/_tools/check_links build/docs/html

# The pictures of docs/gallery; ARGS="knot sheet" for some of them.
gallery: build/CMakeCache.txt
	$(call build_preset,release) --target sds
	scripts/make_gallery $(ARGS)

# The pictures of the manual's first page, by the page's own commands.
first-page: build
	tests/docs/check_blocks --build build --keep docs/images/first docs/index.md

format: dependencies-checks
	$(if $(sources),clang-format -i $(sources))

check: check-format check-layering check-names check-length

check-format: dependencies-checks
	$(if $(sources),clang-format --dry-run -Werror $(sources))

check-layering: dependencies-program
	scripts/check_layering

check-names: dependencies-program
	scripts/check_names

check-length: dependencies-program
	scripts/check_length

# DIRS="sds" for some of them.
DIRS ?= host sds render model io cli bindings web
tidy: build/tidy/CMakeCache.txt
	run-clang-tidy -quiet -p build/tidy -j $(JOBS) -extra-arg=-Wno-unknown-warning-option \
	    '$(CURDIR)/($(call any_of,$(DIRS)))/'

# Seconds per fuzzer.
T ?= 60
fuzz: build/fuzz/CMakeCache.txt
	$(call build_preset,fuzz)
	scripts/fuzz $(T)

# TESTS="sds host" builds and runs only these of tests/.
asan tsan scalar: %: build/%/CMakeCache.txt
	$(call build_preset,$@) $(if $(TESTS),--target $(addprefix test_,$(TESTS)))
	ctest --preset $@ $(if $(TESTS),-R '^($(call any_of,$(TESTS)))\..*$(NAMES)')
tsan: NAMES = (Thread|Concurrent|Parallel)

# Everything by the other compiler.
clang: build/clang/CMakeCache.txt
	$(call build_preset,clang)

# Host and module for ARM64, run under emulation beside this processor's own.
build/arm64/CMakeCache.txt: | cross-dependencies
arm64: build/all_parts build/arm64/CMakeCache.txt
	$(call build_preset,release) --target surface_hashes
	$(call build_preset,arm64)
	JOBS=$(JOBS) scripts/check_arm64

# The page: build/web/page is one folder that any static server serves, such as `python3 -m http.server -d build/web/page`.
build/web/CMakeCache.txt: | dependencies-web
web/node_modules/.package-lock.json: web/package-lock.json | dependencies-web
	cd web && npm ci --no-audit --no-fund --ignore-scripts
	@touch $@
web: build/web/CMakeCache.txt web/node_modules/.package-lock.json
	$(call build_preset,web)
	node web/build.mjs

# The page in a headless browser, against build/bin/sds.
web-test: web build/CMakeCache.txt
	$(call build_preset,release) --target sds
	node web/tests/run.mjs

clean:
	rm -rf build
