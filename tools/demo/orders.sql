-- Orders of a month, with a hint, a label, quoted names and a procedure.
select /*+ index(o by_month) */ o.id, o."Placed at", c.name || ' (' || c.country || ')'
  from orders o, customers c
 where o.customer = c.id (+)
   and o.total >= 1.5e3 and o.note <> 'it''s;
late';

begin
  <<again>> update orders set total = total * 1.1 where id in (1, 2, 3);
  if 1 = 1 then delete from orders where total = 0; end if;
end;

select count(*) from orders;  /* how many; really */
