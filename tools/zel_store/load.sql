-- The library's tables that are in the file too, with their columns by position, as the library reads them: in what they
-- differ, and what gives their rows. Some ids are written as the negative number of the same 32 bits.
SELECT name, coalesce(differences, iif(is_declared_alike, NULL, 'declared otherwise')) AS differences,
       format('SELECT %s FROM copy.%s', columns, name) AS reading
FROM (SELECT t.name, group_concat(iif(laid.name IS found.name AND laid.type IS found.type, NULL,
                                      format('%s %s for %s %s', found.name, found.type, laid.name, laid.type)), ', ')
             AS differences,
             replace(replace(replace(t.sql, char(9), ''), ' ', ''), char(10), '') =
             replace(replace(replace(other.sql, char(9), ''), ' ', ''), char(10), '') AS is_declared_alike,
             group_concat(replace(iif(laid.name IN ('req_id', 'content_id', 'offset'),
                                      'iif(@ BETWEEN -2147483648 AND -1, @ + 4294967296, @)', '@'), '@',
                                  coalesce(format('"%w"', found.name), iif(laid."notnull", '''''', 'NULL')))
                          || ' AS ' || laid.name, ', ') AS columns
      FROM main.sqlite_master AS t
      JOIN copy.sqlite_master AS other ON other.name = t.name AND other.type = 'table' AND other.rootpage > 0
      JOIN pragma_table_info(t.name, 'main') AS laid
      LEFT JOIN pragma_table_xinfo(t.name, 'copy') AS found ON found.cid = laid.cid AND found.hidden = 0
      WHERE t.name NOT GLOB 'sqlite_*' GROUP BY t.rowid);
