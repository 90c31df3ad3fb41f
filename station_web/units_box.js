/* The units' tiles: as large as fits, or in pages. */
var units_box = (function () {
    'use strict';

    function element() {
        return document.getElementById('units');
    }

    function tiles_of(box) {
        return Array.prototype.slice.call(box.querySelectorAll('.unit'));
    }

    function fill(units) {
        var box = element();
        box.textContent = '';
        units.forEach(function (unit) {
            box.appendChild(tiles.make({ name: glyphs.readable(unit.name), color: unit.color }));
        });
    }

    function show_all(box) {
        tiles_of(box).forEach(function (tile) {
            tile.style.display = '';
        });
    }

    function height_at(box, width, size) {
        box.style.height = 'auto';
        box.style.width = Math.floor(width) + 'px';
        box.style.fontSize = size + 'px';
        return box.scrollWidth > box.clientWidth ? Infinity : box.scrollHeight;
    }

    /* Groups of tiles whose rows fit into the height; at least one row each. */
    function pages_of(box, height) {
        var pages = [], top = 0;
        tiles_of(box).forEach(function (tile) {
            if (pages.length === 0 || tile.offsetTop + tile.offsetHeight - top > height) {
                if (pages.length === 0 || tile.offsetTop > top) {
                    pages.push([]);
                    top = tile.offsetTop;
                }
            }
            pages[pages.length - 1].push(tile);
        });
        return pages;
    }

    function height_of(pages) {
        return Math.max.apply(null, pages.map(function (page) {
            var last = page[page.length - 1];
            return last.offsetTop + last.offsetHeight - page[0].offsetTop;
        }));
    }

    /* Limits: { width, height, smallest, largest, may_page, page_width }, in pixels; the last is what
       the number of a page takes. Null if the units need pages that they may not have. */
    function plan(limits) {
        var box = element(), size, pages;
        show_all(box);
        function fits(try_size) {
            return height_at(box, limits.width, try_size) <= limits.height;
        }
        if (fits(limits.smallest)) {
            size = measure.largest(limits.smallest, limits.largest, fits);
            return { size: size, width: limits.width, height: height_at(box, limits.width, size),
                pages: [tiles_of(box)] };
        }
        if (!limits.may_page) {
            return null;
        }
        height_at(box, limits.width - limits.page_width, limits.smallest);
        pages = pages_of(box, limits.height);
        return { size: limits.smallest, width: limits.width - limits.page_width,
            height: height_of(pages), pages: pages };
    }

    /* Shows one of the plan's pages. */
    function turn(made, page) {
        var box = element(), shown = made.pages[page % made.pages.length] || [];
        height_at(box, made.width, made.size);
        tiles_of(box).forEach(function (tile) {
            tile.style.display = shown.indexOf(tile) < 0 ? 'none' : '';
        });
    }

    return { fill: fill, plan: plan, turn: turn };
}());
